// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/PipeWireConnection.h"

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>
#include <spa/param/format-utils.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "Platform/Linux/Audio/ProcessSource.h"

namespace monitor::platform {

namespace {

// A missing server is looked for soon, because it is usually being restarted, and then once a second.
constexpr double kFirstRetry = 0.1;
constexpr double kLongestRetry = 1.0;
// The session manager starts after the server; without it no output is the default one. It is waited for this
// long, so that nobody is told first that there is no output and then that there is.
constexpr double kDefaultOutputGrace = 0.7;

Properties propertiesOf(const spa_dict* dictionary) {
  Properties properties;
  if (dictionary == nullptr) return properties;
  for (std::uint32_t index = 0; index < dictionary->n_items; ++index) {
    const spa_dict_item& item = dictionary->items[index];
    if (item.key != nullptr && item.value != nullptr) properties.insert_or_assign(item.key, item.value);
  }
  return properties;
}

GlobalKind kindOf(std::string_view type) {
  if (type == PW_TYPE_INTERFACE_Client) return GlobalKind::Client;
  if (type == PW_TYPE_INTERFACE_Node) return GlobalKind::Node;
  if (type == PW_TYPE_INTERFACE_Port) return GlobalKind::Port;
  if (type == PW_TYPE_INTERFACE_Link) return GlobalKind::Link;
  return GlobalKind::Other;
}

NodeState stateOf(pw_node_state state) {
  switch (state) {
    case PW_NODE_STATE_ERROR:
      return NodeState::Error;
    case PW_NODE_STATE_CREATING:
      return NodeState::Creating;
    case PW_NODE_STATE_SUSPENDED:
      return NodeState::Suspended;
    case PW_NODE_STATE_IDLE:
      return NodeState::Idle;
    case PW_NODE_STATE_RUNNING:
      return NodeState::Running;
  }
  return NodeState::Unknown;
}

// From 1.4 on the plain client configuration has the realtime module, and the name of the other one is
// deprecated.
bool needsRealtimeConfiguration() {
  int major = 0;
  int minor = 0;
  return std::sscanf(pw_get_library_version(), "%d.%d", &major, &minor) != 2 || major < 1 ||
         (major == 1 && minor < 4);
}

pw_context* makeContext(pw_loop* loop) {
  pw_properties* properties = pw_properties_new(PW_KEY_APP_NAME, "Vesk Monitor audio service", nullptr);
  if (needsRealtimeConfiguration()) pw_properties_set(properties, PW_KEY_CONFIG_NAME, "client-rt.conf");
  return pw_context_new(loop, properties, 0);
}

// The formats that one playback stream offers and the one it uses.
class CodingWatch {
 public:
  void addParam(std::uint32_t id, const spa_pod* param) {
    std::uint32_t type = 0;
    std::uint32_t subtype = 0;
    if (param == nullptr || spa_format_parse(param, &type, &subtype) < 0) return;
    const bool raw = subtype == SPA_MEDIA_SUBTYPE_raw;
    if (id == SPA_PARAM_Format) usesRaw_ = raw;
    if (id == SPA_PARAM_EnumFormat) (raw ? offersRaw_ : offersEncoded_) = true;
  }

  [[nodiscard]] StreamCoding coding() const {
    if (usesRaw_) return *usesRaw_ ? StreamCoding::Pcm : StreamCoding::Encoded;
    if (offersRaw_) return StreamCoding::Pcm;
    return offersEncoded_ ? StreamCoding::Encoded : StreamCoding::Unknown;
  }

 private:
  std::optional<bool> usesRaw_;
  bool offersRaw_ = false;
  bool offersEncoded_ = false;
};

}  // namespace

// Everything that belongs to one connection, and ends with it.
struct PipeWireConnection::Session {
  // One object of the registry that is listened to.
  struct Bound {
    Bound(Session& owner, GlobalID global, pw_proxy* bound) : session(owner), id(global), proxy(bound) {}
    ~Bound() {
      spa_hook_remove(&listener);
      pw_proxy_destroy(proxy);
    }
    Bound(const Bound&) = delete;
    Bound& operator=(const Bound&) = delete;

    Session& session;
    GlobalID id;
    pw_proxy* proxy;
    spa_hook listener{};
    CodingWatch coding;
  };

  Session(PipeWireConnection& owner, pw_core* connected) : connection(owner), core(connected) {
    static const pw_core_events coreEvents = makeCoreEvents();
    static const pw_registry_events registryEvents = makeRegistryEvents();
    pw_core_add_listener(core, &coreListener, &coreEvents, this);
    registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
    if (registry == nullptr) return;
    pw_registry_add_listener(registry, &registryListener, &registryEvents, this);
    sequence = pw_core_sync(core, PW_ID_CORE, 0);
  }

  ~Session() {
    bound.clear();
    if (registry != nullptr) {
      spa_hook_remove(&registryListener);
      pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    }
    spa_hook_remove(&coreListener);
    pw_core_disconnect(core);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  static pw_core_events makeCoreEvents() {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = [](void* data, std::uint32_t id, int sequence) {
      static_cast<Session*>(data)->done(id, sequence);
    };
    events.error = [](void* data, std::uint32_t id, int, int result, const char*) {
      static_cast<Session*>(data)->failed(id, result);
    };
    return events;
  }

  static pw_registry_events makeRegistryEvents() {
    pw_registry_events events{};
    events.version = PW_VERSION_REGISTRY_EVENTS;
    events.global = [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                       const spa_dict* properties) {
      static_cast<Session*>(data)->added(id, type, propertiesOf(properties));
    };
    events.global_remove = [](void* data, std::uint32_t id) { static_cast<Session*>(data)->removed(id); };
    return events;
  }

  // The first answer follows the registry's list, the second one the descriptions of everything bound
  // meanwhile.
  void done(std::uint32_t id, int answeredSequence) {
    if (id != PW_ID_CORE || answeredSequence != sequence) return;
    if (!listed) {
      listed = true;
      sequence = pw_core_sync(core, PW_ID_CORE, 0);
    } else if (!described) {
      described = true;
      connection.answered();
    }
  }

  // Other errors are races with objects that have just gone, and harmless.
  void failed(std::uint32_t id, int result) {
    if (id != PW_ID_CORE || result != -EPIPE || lost) return;
    lost = true;
    // The core may not be destroyed from inside its own event.
    connection.thread_.post([alive = std::weak_ptr<bool>{connection.alive_}, self = &connection] {
      if (alive.lock()) self->lose();
    });
  }

  void added(GlobalID id, const char* type, Properties properties) {
    if (lost) return;
    const GlobalKind kind = kindOf(type);
    if (kind == GlobalKind::Client) bind(id, type, PW_VERSION_CLIENT, &clientEvents());
    if (kind == GlobalKind::Node && propertyText(properties, "media.class") == "Stream/Output/Audio") {
      bindStream(id, type);
    }
    if (std::string_view{type} == PW_TYPE_INTERFACE_Metadata) {
      bindMetadata(id, type, propertyText(properties, PW_KEY_METADATA_NAME));
    }
    connection.graph_.addGlobal(id, kind, std::move(properties), secondsSinceBoot());
    connection.notifySoon();
  }

  void removed(GlobalID id) {
    bound.erase(id);
    if (defaultMetadata == id) {
      defaultMetadata.reset();
      connection.graph_.setMetadataPresent(false);
    }
    if (settingsMetadata == id) {
      settingsMetadata.reset();
      connection.graph_.clearSettings();
    }
    connection.graph_.removeGlobal(id);
    connection.notifySoon();
  }

  Bound* bind(GlobalID id, const char* type, std::uint32_t version, const void* events) {
    auto* proxy = static_cast<pw_proxy*>(pw_registry_bind(registry, id, type, version, 0));
    if (proxy == nullptr) return nullptr;
    auto entry = std::make_unique<Bound>(*this, id, proxy);
    pw_proxy_add_object_listener(proxy, &entry->listener, events, entry.get());
    return (bound[id] = std::move(entry)).get();
  }

  void bindStream(GlobalID id, const char* type) {
    auto* entry = bind(id, type, PW_VERSION_NODE, &nodeEvents());
    if (entry == nullptr) return;
    std::array<std::uint32_t, 2> ids{SPA_PARAM_EnumFormat, SPA_PARAM_Format};
    pw_node_subscribe_params(reinterpret_cast<pw_node*>(entry->proxy), ids.data(), ids.size());
  }

  void bindMetadata(GlobalID id, const char* type, std::string_view name) {
    if (name == "default" && !defaultMetadata && bind(id, type, PW_VERSION_METADATA, &metadataEvents())) {
      defaultMetadata = id;
      connection.graph_.setMetadataPresent(true);
    }
    if (name == "settings" && !settingsMetadata && bind(id, type, PW_VERSION_METADATA, &settingsEvents())) {
      settingsMetadata = id;
    }
  }

  static const pw_client_events& clientEvents() {
    static const pw_client_events events = [] {
      pw_client_events made{};
      made.version = PW_VERSION_CLIENT_EVENTS;
      made.info = [](void* data, const pw_client_info* info) {
        auto* entry = static_cast<Bound*>(data);
        if ((info->change_mask & PW_CLIENT_CHANGE_MASK_PROPS) == 0) return;
        entry->session.connection.graph_.describeClient(entry->id, propertiesOf(info->props));
        entry->session.connection.notifySoon();
      };
      return made;
    }();
    return events;
  }

  static const pw_node_events& nodeEvents() {
    static const pw_node_events events = [] {
      pw_node_events made{};
      made.version = PW_VERSION_NODE_EVENTS;
      made.info = [](void* data, const pw_node_info* info) {
        auto* entry = static_cast<Bound*>(data);
        PipeWireConnection& connection = entry->session.connection;
        if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) != 0) {
          connection.graph_.describeNode(entry->id, propertiesOf(info->props));
        }
        if ((info->change_mask & PW_NODE_CHANGE_MASK_STATE) != 0) {
          connection.graph_.setNodeState(entry->id, stateOf(info->state));
        }
        connection.notifySoon();
      };
      made.param = [](void* data, int, std::uint32_t id, std::uint32_t, std::uint32_t, const spa_pod* param) {
        auto* entry = static_cast<Bound*>(data);
        entry->coding.addParam(id, param);
        entry->session.connection.graph_.setNodeCoding(entry->id, entry->coding.coding());
        entry->session.connection.notifySoon();
      };
      return made;
    }();
    return events;
  }

  static const pw_metadata_events& metadataEvents() {
    static const pw_metadata_events events = [] {
      pw_metadata_events made{};
      made.version = PW_VERSION_METADATA_EVENTS;
      made.property = [](void* data, std::uint32_t subject, const char* key, const char* type,
                         const char* value) -> int {
        auto* entry = static_cast<Bound*>(data);
        PipeWireConnection& connection = entry->session.connection;
        std::optional<std::string_view> written;
        if (key != nullptr) written = key;
        std::optional<MetadataValue> content;
        if (value != nullptr) content = MetadataValue{type == nullptr ? "" : type, value};
        connection.graph_.setMetadata(subject, written, content);
        if (key != nullptr) connection.observer_.metadataWritten(subject, key, content);
        connection.notifySoon();
        return 0;
      };
      return made;
    }();
    return events;
  }

  static const pw_metadata_events& settingsEvents() {
    static const pw_metadata_events events = [] {
      pw_metadata_events made{};
      made.version = PW_VERSION_METADATA_EVENTS;
      made.property = [](void* data, std::uint32_t, const char* key, const char*, const char* value) -> int {
        auto* entry = static_cast<Bound*>(data);
        if (key == nullptr) return 0;
        std::optional<std::string_view> content;
        if (value != nullptr) content = value;
        entry->session.connection.graph_.setSetting(key, content);
        entry->session.connection.notifySoon();
        return 0;
      };
      return made;
    }();
    return events;
  }

  PipeWireConnection& connection;
  pw_core* core;
  pw_registry* registry = nullptr;
  spa_hook coreListener{};
  spa_hook registryListener{};
  int sequence = 0;
  bool listed = false;
  bool described = false;
  bool lost = false;
  std::map<GlobalID, std::unique_ptr<Bound>> bound;
  std::optional<GlobalID> defaultMetadata;
  std::optional<GlobalID> settingsMetadata;
};

PipeWireConnection::PipeWireConnection(LoopThread& thread, GraphModel& graph, Observer& observer)
    : thread_(thread),
      graph_(graph),
      observer_(observer),
      context_(makeContext(thread.loop())),
      retry_(thread.loop(), [this] { connect(); }),
      grace_(thread.loop(),
             [this] {
               graceOver_ = true;
               reconsiderReady();
             }),
      retryAfter_(kFirstRetry) {
  if (context_ == nullptr)
    throw std::runtime_error("The client library of the audio server cannot be set up.");
}

PipeWireConnection::~PipeWireConnection() {
  session_.reset();
  pw_context_destroy(context_);
}

void PipeWireConnection::open() {
  connect();
}

pw_core* PipeWireConnection::core() const {
  return session_ == nullptr || session_->lost ? nullptr : session_->core;
}

void PipeWireConnection::connect() {
  pw_core* core = pw_context_connect(context_, nullptr, 0);
  if (core == nullptr) {
    setState(State::Down);
    retry_.arm(retryAfter_);
    retryAfter_ = std::min(2 * retryAfter_, kLongestRetry);
    return;
  }
  retryAfter_ = kFirstRetry;
  synced_ = false;
  graceOver_ = false;
  session_ = std::make_unique<Session>(*this, core);
}

void PipeWireConnection::lose() {
  setState(State::Down);
  observer_.connectionLost();
  session_.reset();
  graph_.clear();
  grace_.disarm();
  retry_.arm(retryAfter_);
}

void PipeWireConnection::setState(State state) {
  if (std::exchange(state_, state) != state) observer_.stateChanged();
}

void PipeWireConnection::answered() {
  synced_ = true;
  grace_.arm(kDefaultOutputGrace);
  notifySoon();
}

void PipeWireConnection::reconsiderReady() {
  if (state_ == State::Ready || !synced_) return;
  const auto sink = graph_.defaultSink();
  const bool known = sink && !graph_.portsOf(*sink, PortDirection::Input).empty();
  if (known || graceOver_) setState(State::Ready);
}

void PipeWireConnection::setMetadata(GlobalID subject, const std::string& key,
                                     const std::optional<MetadataValue>& value) {
  if (core() == nullptr || !session_->defaultMetadata) return;
  const auto entry = session_->bound.find(*session_->defaultMetadata);
  if (entry == session_->bound.end()) return;
  pw_metadata_set_property(reinterpret_cast<pw_metadata*>(entry->second->proxy), subject, key.c_str(),
                           value ? value->type.c_str() : nullptr, value ? value->text.c_str() : nullptr);
}

void PipeWireConnection::notifySoon() {
  if (std::exchange(notifying_, true)) return;
  thread_.post([alive = std::weak_ptr<bool>{alive_}, this] {
    if (!alive.lock()) return;
    notifying_ = false;
    if (core() == nullptr) return;
    reconsiderReady();
    observer_.graphChanged();
  });
}

}  // namespace monitor::platform
