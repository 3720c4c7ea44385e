// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/IcuTextOrder.h"

#include <unicode/coll.h>
#include <unicode/locid.h>

#include <stdexcept>
#include <string>

namespace monitor::platform {
namespace {

icu::StringPiece piece(std::string_view text) {
  return {text.data(), static_cast<int32_t>(text.size())};
}

// Without a locale of the user's own the common order of all languages holds, not the order of bytes.
icu::Locale userLocale() {
  const icu::Locale& locale = icu::Locale::getDefault();
  return std::string_view(locale.getName()) == "en_US_POSIX" ? icu::Locale::getRoot() : locale;
}

class IcuTextOrder final : public TextOrder {
 public:
  IcuTextOrder() {
    UErrorCode status = U_ZERO_ERROR;
    collator_.reset(icu::Collator::createInstance(userLocale(), status));
    if (U_SUCCESS(status)) {
      collator_->setStrength(icu::Collator::SECONDARY);
      collator_->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    }
    if (U_FAILURE(status))
      throw std::runtime_error(std::string("no collation rules: ") + u_errorName(status));
  }

  [[nodiscard]] bool precedes(std::string_view left, std::string_view right) const override {
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result = collator_->compareUTF8(piece(left), piece(right), status);
    return U_SUCCESS(status) ? result == UCOL_LESS : left < right;
  }

 private:
  std::unique_ptr<icu::Collator> collator_;
};

}  // namespace

std::unique_ptr<TextOrder> makeTextOrder() {
  return std::make_unique<IcuTextOrder>();
}

}  // namespace monitor::platform
