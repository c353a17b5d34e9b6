#include "identifiers.h"

#include <algorithm>
#include <iterator>

namespace korvane::com {

namespace {

constexpr ClassIdentifiers kIdentifiers[] = {
    {"MailMessage", "10d068f4-324c-5075-b8cb-6882aabbf5e4", "aa3e477a-55a9-5f85-8056-0f31716308c8"},
    {"MailMessages", "269f49c3-e0a8-57a3-aae8-773508c22029",
     "b8350312-4018-5223-a2fe-eb377c6200d8"},
    {"WebInterface", "18bc6d11-8091-5ced-a630-4246b86b4145",
     "4b8c6e2e-5b87-5adf-830b-9eff0066f597"},
    {"MailAttachment", "41f70b41-f3ac-5533-90ed-a85e22186533",
     "444fc7ae-691d-5849-a826-391451e1c02b"},
    {"MailAttachments", "8f0d338c-e2c8-5a26-bd69-59ac7b040943",
     "45610aa0-270e-5603-96c4-babc1cbb7cd3"},
    {"MultipartEntity", "ca38cbac-7800-5e2f-ae14-e187103e7476",
     "3c171aaf-660a-5aa5-8e67-c132c3fa139e"},
    {"MailUser", "69d10f2a-fd26-567e-84b3-9963ef625e91", "f4056a05-d216-520c-aa81-50f9139c4ab7"},
    {"UUAtcmt", "2c68d71f-c449-59fe-8afa-1cefeb0978c9", "8d32df0f-6eaa-502e-a9b5-810e9e6a373b"},
    {"BossObject", "87307468-1de3-5013-83ba-e9a0624eed41", "961614cb-eda0-54bc-9f07-56bbfca0f149"},
    {"BasicInterface", "fd096877-87c3-5be8-b1ca-9a1b205e7aa3",
     "661c817a-69e4-5890-b7a0-345f1fed4be2"},
};

}  // namespace

std::span<const ClassIdentifiers> Identifiers() { return kIdentifiers; }

const ClassIdentifiers* FindIdentifiers(std::string_view class_name) {
  const auto* found = std::ranges::find(kIdentifiers, class_name, &ClassIdentifiers::name);
  return found == std::end(kIdentifiers) ? nullptr : found;
}

}  // namespace korvane::com
