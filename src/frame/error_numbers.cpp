#include "frame/error_numbers.h"

#include <algorithm>
#include <array>

namespace korvane {

namespace {
constexpr ErrorEntry kErrors[] = {
#define KORVANE_ERROR(number, name, owner, meaning, advice) {number, #name, owner, meaning, advice},
#include "frame/errors.def"
#undef KORVANE_ERROR
};
static_assert(std::ranges::is_sorted(kErrors, {}, &ErrorEntry::number));
}  // namespace

std::span<const ErrorEntry> AllErrors() { return kErrors; }

const ErrorEntry* FindError(int32_t number) {
  const auto* found = std::ranges::lower_bound(kErrors, number, {}, &ErrorEntry::number);
  return found != std::end(kErrors) && found->number == number ? found : nullptr;
}

}  // namespace korvane
