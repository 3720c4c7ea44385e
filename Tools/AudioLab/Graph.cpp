// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Graph.h"

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "Tools/AudioLab/LabError.h"
#include "Tools/AudioLab/StackFiles.h"

namespace monitor::lab {
namespace {

constexpr std::uint32_t kNone = UINT32_MAX;

std::string shortType(const char* type) {
  const char* colon = std::strrchr(type, ':');
  return colon != nullptr ? colon + 1 : type;
}

void merge(GraphObject& object, const spa_dict* properties) {
  if (properties == nullptr) return;
  const spa_dict_item* item = nullptr;
  spa_dict_for_each(item, properties) object.properties[item->key] =
      item->value != nullptr ? item->value : "";
}

}  // namespace

std::string GraphObject::property(std::string_view key) const {
  const auto found = properties.find(std::string(key));
  return found == properties.end() ? std::string() : found->second;
}

std::uint32_t GraphObject::number(std::string_view key) const {
  const std::string text = property(key);
  return text.empty() ? kNone : static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

const GraphObject* GraphView::nodeNamed(std::string_view name) const {
  for (const auto& [id, object] : objects) {
    if (object.type == "Node" && object.property("node.name") == name) return &object;
  }
  return nullptr;
}

std::vector<const GraphObject*> GraphView::ofType(std::string_view type) const {
  std::vector<const GraphObject*> result;
  for (const auto& [id, object] : objects) {
    if (object.type == type) result.push_back(&object);
  }
  return result;
}

std::vector<const GraphObject*> GraphView::nodesOfClass(std::string_view mediaClass) const {
  auto result = ofType("Node");
  std::erase_if(result, [&](const GraphObject* node) { return node->property("media.class") != mediaClass; });
  return result;
}

std::vector<const GraphObject*> GraphView::portsOf(std::uint32_t node) const {
  auto result = ofType("Port");
  std::erase_if(result, [&](const GraphObject* port) { return port->number("node.id") != node; });
  return result;
}

std::size_t GraphView::linkCount(std::uint32_t outputNode, std::uint32_t inputNode) const {
  std::size_t count = 0;
  for (const auto& [id, object] : objects) {
    if (object.type == "Link" && object.number("link.output.node") == outputNode &&
        object.number("link.input.node") == inputNode) {
      ++count;
    }
  }
  return count;
}

std::string GraphView::metadataValue(std::uint32_t subject, std::string_view key) const {
  const auto found = metadata.find({subject, std::string(key)});
  return found == metadata.end() ? std::string() : found->second;
}

std::string GraphView::defaultSink() const {
  const auto value = nlohmann::json::parse(metadataValue(0, "default.audio.sink"), nullptr, false);
  return value.is_object() ? value.value("name", std::string()) : std::string();
}

struct Graph::Implementation {
  // A bound object, for what the registry does not tell: later properties and the state.
  struct Bound {
    Implementation* owner = nullptr;
    std::uint32_t id = 0;
    pw_proxy* proxy = nullptr;
    spa_hook listener{};
  };

  explicit Implementation(const std::string& remote) {
    pw_init(nullptr, nullptr);
    loop = pw_thread_loop_new("lab-graph", nullptr);
    if (loop == nullptr) throw LabError("cannot make a PipeWire loop");
    // Settled here and not by the environment: a recorder in the process needs the realtime data thread.
    context = pw_context_new(pw_thread_loop_get_loop(loop),
                             pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
    if (context != nullptr) {
      core = pw_context_connect(context, pw_properties_new(PW_KEY_REMOTE_NAME, remote.c_str(), nullptr), 0);
    }
    if (core == nullptr) {
      const int error = errno;
      release();
      throw LabError("cannot connect to PipeWire at " + remote + ": " + std::strerror(error));
    }
    listen();
    pw_thread_loop_start(loop);
  }

  ~Implementation() { release(); }

  void release() {
    if (loop != nullptr) pw_thread_loop_stop(loop);
    bound.clear();
    sinks.clear();
    if (metadata != nullptr) pw_proxy_destroy(reinterpret_cast<pw_proxy*>(metadata));
    if (registry != nullptr) pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    if (core != nullptr) pw_core_disconnect(core);
    if (context != nullptr) pw_context_destroy(context);
    if (loop != nullptr) pw_thread_loop_destroy(loop);
    pw_deinit();
  }

  void listen() {
    static const pw_core_events coreEvents = [] {
      pw_core_events events{};
      events.version = PW_VERSION_CORE_EVENTS;
      events.done = [](void* data, std::uint32_t, int sequence) {
        static_cast<Implementation*>(data)->answered = sequence;
        static_cast<Implementation*>(data)->changed();
      };
      events.error = [](void* data, std::uint32_t id, int, int result, const char*) {
        // Everything else is a harmless race with an object that has just gone.
        if (id == PW_ID_CORE && result == -EPIPE) static_cast<Implementation*>(data)->alive = false;
        static_cast<Implementation*>(data)->changed();
      };
      return events;
    }();
    static const pw_registry_events registryEvents = [] {
      pw_registry_events events{};
      events.version = PW_VERSION_REGISTRY_EVENTS;
      events.global = [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                         const spa_dict* properties) {
        static_cast<Implementation*>(data)->added(id, type, properties);
      };
      events.global_remove = [](void* data, std::uint32_t id) {
        static_cast<Implementation*>(data)->removed(id);
      };
      return events;
    }();
    pw_core_add_listener(core, &coreListener, &coreEvents, this);
    registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
    pw_registry_add_listener(registry, &registryListener, &registryEvents, this);
  }

  void changed() { pw_thread_loop_signal(loop, false); }

  void added(std::uint32_t id, const char* type, const spa_dict* properties) {
    GraphObject object{.id = id, .type = shortType(type), .properties = {}, .state = {}};
    merge(object, properties);
    if (object.type == "Node" || object.type == "Client") bind(object, type);
    if (object.type == "Metadata" && object.property("metadata.name") == "default") bindMetadata(id, type);
    view.objects[id] = std::move(object);
    changed();
  }

  void removed(std::uint32_t id) {
    view.objects.erase(id);
    bound.erase(id);
    // The server tells nothing about the keys of a subject that has gone, and numbers are used again.
    if (id != 0) std::erase_if(view.metadata, [id](const auto& entry) { return entry.first.first == id; });
    if (id == metadataId) dropMetadata();
    changed();
  }

  struct ProxyDeleter {
    void operator()(Bound* item) const {
      spa_hook_remove(&item->listener);
      pw_proxy_destroy(item->proxy);
      delete item;
    }
  };

  void bind(const GraphObject& object, const char* type) {
    static const pw_node_events nodeEvents = [] {
      pw_node_events events{};
      events.version = PW_VERSION_NODE_EVENTS;
      events.info = [](void* data, const pw_node_info* info) {
        auto* item = static_cast<Bound*>(data);
        GraphObject& target = item->owner->view.objects[item->id];
        if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) != 0) merge(target, info->props);
        target.state = pw_node_state_as_string(info->state);
        item->owner->changed();
      };
      return events;
    }();
    static const pw_client_events clientEvents = [] {
      pw_client_events events{};
      events.version = PW_VERSION_CLIENT_EVENTS;
      events.info = [](void* data, const pw_client_info* info) {
        auto* item = static_cast<Bound*>(data);
        merge(item->owner->view.objects[item->id], info->props);
        item->owner->changed();
      };
      return events;
    }();
    const bool node = object.type == "Node";
    auto item = std::make_unique<Bound>();
    item->owner = this;
    item->id = object.id;
    item->proxy = static_cast<pw_proxy*>(
        pw_registry_bind(registry, object.id, type, node ? PW_VERSION_NODE : PW_VERSION_CLIENT, 0));
    if (item->proxy == nullptr) return;
    pw_proxy_add_object_listener(item->proxy, &item->listener,
                                 node ? static_cast<const void*>(&nodeEvents) : &clientEvents, item.get());
    bound[object.id].reset(item.release());
  }

  void bindMetadata(std::uint32_t id, const char* type) {
    static const pw_metadata_events events = [] {
      pw_metadata_events result{};
      result.version = PW_VERSION_METADATA_EVENTS;
      result.property = [](void* data, std::uint32_t subject, const char* key, const char*,
                           const char* value) -> int {
        static_cast<Implementation*>(data)->property(subject, key, value);
        return 0;
      };
      return result;
    }();
    dropMetadata();
    metadata = static_cast<pw_metadata*>(pw_registry_bind(registry, id, type, PW_VERSION_METADATA, 0));
    if (metadata == nullptr) return;
    metadataId = id;
    pw_metadata_add_listener(metadata, &metadataListener, &events, this);
  }

  void dropMetadata() {
    if (metadata == nullptr) return;
    spa_hook_remove(&metadataListener);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(metadata));
    metadata = nullptr;
    metadataId = kNone;
    view.metadata.clear();
  }

  void property(std::uint32_t subject, const char* key, const char* value) {
    if (key == nullptr) {
      std::erase_if(view.metadata, [subject](const auto& entry) { return entry.first.first == subject; });
    } else if (value == nullptr) {
      view.metadata.erase({subject, key});
    } else {
      view.metadata[{subject, key}] = value;
    }
    changed();
  }

  bool waitUntil(const std::function<bool()>& condition, Milliseconds deadline) {
    timespec end{};
    pw_thread_loop_get_time(loop, &end, std::chrono::nanoseconds(deadline).count());
    while (!condition()) {
      if (!alive) return false;
      if (pw_thread_loop_timed_wait_full(loop, &end) < 0) return condition();
    }
    return true;
  }

  pw_thread_loop* loop = nullptr;
  pw_context* context = nullptr;
  pw_core* core = nullptr;
  pw_registry* registry = nullptr;
  pw_metadata* metadata = nullptr;
  std::uint32_t metadataId = kNone;
  spa_hook coreListener{}, registryListener{}, metadataListener{};
  std::map<std::uint32_t, std::unique_ptr<Bound, ProxyDeleter>> bound;
  struct SinkDeleter {
    void operator()(pw_proxy* proxy) const { pw_proxy_destroy(proxy); }
  };
  std::map<std::string, std::unique_ptr<pw_proxy, SinkDeleter>> sinks;
  GraphView view;
  int answered = -1;
  bool alive = true;
};

Graph::Lock::Lock(const Graph& graph) : loop_(graph.loop()) {
  pw_thread_loop_lock(loop_);
}
Graph::Lock::~Lock() {
  pw_thread_loop_unlock(loop_);
}

Graph::Graph(const std::string& remote, Milliseconds deadline)
    : implementation_(std::make_unique<Implementation>(remote)) {
  // Twice: the first answer comes after the registry's list, the second after what binding its objects tells.
  if (!roundTrip(deadline) || !roundTrip(deadline))
    throw LabError("PipeWire at " + remote + " does not answer");
}

Graph::~Graph() = default;

GraphView Graph::view() const {
  const Lock lock(*this);
  return implementation_->view;
}

bool Graph::waitUntil(const std::function<bool(const GraphView&)>& condition, Milliseconds deadline) {
  const Lock lock(*this);
  return implementation_->waitUntil([&] { return condition(implementation_->view); }, deadline);
}

bool Graph::roundTrip(Milliseconds deadline) {
  const Lock lock(*this);
  const int sequence = pw_core_sync(implementation_->core, PW_ID_CORE, 0);
  return implementation_->waitUntil([&] { return implementation_->answered == sequence; }, deadline);
}

bool Graph::connected() const {
  const Lock lock(*this);
  return implementation_->alive;
}

void Graph::setMetadata(std::uint32_t subject, const std::string& key, const std::string& type,
                        const std::optional<std::string>& value) {
  {
    const Lock lock(*this);
    if (implementation_->metadata == nullptr) throw LabError("the audio server has no \"default\" metadata");
    pw_metadata_set_property(implementation_->metadata, subject, key.c_str(), value ? type.c_str() : nullptr,
                             value ? value->c_str() : nullptr);
  }
  // The session manager owns the metadata, so that the server's own answer says nothing about it.
  const bool taken = waitUntil([&](const GraphView& now) {
    const auto found = now.metadata.find({subject, key});
    return value ? found != now.metadata.end() && found->second == *value : found == now.metadata.end();
  });
  if (!taken) throw LabError("the session manager does not take the metadata " + key);
}

void Graph::setDefaultSink(const std::string& name) {
  setMetadata(0, "default.configured.audio.sink", "Spa:String:JSON", nlohmann::json{{"name", name}}.dump());
  if (!waitUntil([&](const GraphView& now) { return now.defaultSink() == name; })) {
    throw LabError("the session manager does not make " + name + " the default output");
  }
}

void Graph::addSink(const SinkOptions& sink) {
  {
    const Lock lock(*this);
    pw_properties* properties = pw_properties_new_string(sinkProperties(sink).c_str());
    auto* proxy = static_cast<pw_proxy*>(pw_core_create_object(
        implementation_->core, "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &properties->dict, 0));
    pw_properties_free(properties);
    if (proxy == nullptr) throw LabError("cannot make the sink " + sink.name);
    implementation_->sinks[sink.name].reset(proxy);
  }
  const bool ready = waitUntil([&](const GraphView& now) {
    const GraphObject* node = now.nodeNamed(sink.name);
    return node != nullptr && now.portsOf(node->id).size() >= 2 * sink.positions.size();
  });
  if (!ready) throw LabError("the sink " + sink.name + " has no ports");
}

void Graph::removeSink(const std::string& name) {
  {
    const Lock lock(*this);
    implementation_->sinks.erase(name);
  }
  if (!waitUntil([&](const GraphView& now) { return now.nodeNamed(name) == nullptr; })) {
    throw LabError("the sink " + name + " does not go away");
  }
}

pw_core* Graph::core() const {
  return implementation_->core;
}
pw_thread_loop* Graph::loop() const {
  return implementation_->loop;
}

}  // namespace monitor::lab
