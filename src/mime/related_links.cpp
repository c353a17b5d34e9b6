#include "mime/related_links.h"

#include <utility>

#include "facade/mail_user.h"
#include "mime/header_fields.h"
#include "mime/html_addresses.h"

namespace korvane {

namespace {

// Percent-encoded, with references for what would end the attribute that it goes into.
std::string AddressOf(std::string_view url, std::string_view stored_name) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string address;
  for (const char c : url) {
    switch (c) {
      case '&':
        address += "&amp;";
        break;
      case '"':
        address += "&quot;";
        break;
      case '\'':
        address += "&#39;";
        break;
      default:
        address += c;
    }
  }
  address += '/';
  for (const char c : stored_name) {
    const auto byte = static_cast<unsigned char>(c);
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~') {
      address += c;
    } else {
      address += '%';
      address += kHex[byte >> 4];
      address += kHex[byte & 15];
    }
  }
  return address;
}

bool HasCidScheme(std::string_view address) {
  return address.size() >= 4 && LowerCase(address.substr(0, 4)) == "cid:";
}

}  // namespace

void RelatedLinks::FindIn(MultipartEntity& root) { RelatedLinks().Walk(root); }

void RelatedLinks::Walk(MultipartEntity& entity) {
  if (entity.fields_.type == EEntityType::Text && entity.fields_.subtype == EEntitySubType::html &&
      !entity.is_attachment_ && !open_.empty()) {
    FindInHtml(entity);
  }
  const bool related = entity.fields_.type == EEntityType::multipart &&
                       entity.fields_.subtype == EEntitySubType::related;
  if (related) open_.push_back(PartsOf(entity));
  for (const auto& child : entity.children_) Walk(*child);
  if (!related) return;
  open_.pop_back();
  for (const auto& child : entity.children_) {
    if (child->fields_.type != EEntityType::multipart && child->fields_.type != EEntityType::Text &&
        !linked_.contains(child.get())) {
      child->is_attachment_ = true;
    }
  }
}

// Only parts that have a file can be linked. The first of two with one name counts.
RelatedLinks::Parts RelatedLinks::PartsOf(const MultipartEntity& related) {
  Parts parts;
  for (const auto& child : related.children_) {
    const EEntityType type = child->fields_.type;
    if (type == EEntityType::multipart || (type == EEntityType::Text && !child->is_attachment_)) {
      continue;
    }
    std::string key = KeyOf(*child);
    if (!key.empty()) parts.emplace(std::move(key), child);
  }
  return parts;
}

std::string RelatedLinks::KeyOf(const MultipartEntity& part) {
  switch (part.related_reference_) {
    case MultipartEntity::Reference::kNone:
      break;
    case MultipartEntity::Reference::kContentId:
      return std::string(WithoutAngleBrackets(part.fields_.id));
    case MultipartEntity::Reference::kLocation:
      return FileNameFromPath(part.fields_.location);
    case MultipartEntity::Reference::kFileName:
      return FileNameFromPath(Parameter(part.fields_.disposition, "filename"));
    case MultipartEntity::Reference::kTypeName:
      return FileNameFromPath(Parameter(part.fields_.content_type, "name"));
  }
  return {};
}

void RelatedLinks::FindInHtml(MultipartEntity& html) {
  bool any = false;
  for (const Parts& parts : open_) any = any || !parts.empty();
  if (!any) return;
  for (const HtmlAddress& place : FindHtmlAddresses(html.data_)) {
    const std::string address = WithoutReferences(
        std::string_view(html.data_).substr(place.begin, place.end - place.begin));
    std::shared_ptr<MultipartEntity> part = PartFor(address);
    if (!part && address.find('%') != std::string::npos) {
      part = PartFor(WithoutPercentSigns(address));
    }
    if (!part) continue;
    if (count_ == kMostLinks) return;
    ++count_;
    linked_.insert(part.get());
    html.links_.push_back({place.begin, place.end, place.bare, part});
  }
}

std::shared_ptr<MultipartEntity> RelatedLinks::PartFor(std::string_view address) const {
  if (address.empty()) return nullptr;
  if (HasCidScheme(address)) return PartCalled(address.substr(4));
  if (auto part = PartCalled(address)) return part;
  const size_t separator = address.find_last_of("/\\");
  return separator == std::string_view::npos ? nullptr : PartCalled(address.substr(separator + 1));
}

std::shared_ptr<MultipartEntity> RelatedLinks::PartCalled(std::string_view name) const {
  const std::string key(name);
  for (auto parts = open_.rbegin(); parts != open_.rend(); ++parts) {
    if (const auto found = parts->find(key); found != parts->end()) return found->second;
  }
  return nullptr;
}

std::string RelatedLinks::Rewritten(const MultipartEntity& html) {
  const std::string_view text = html.data_;
  const std::string url = html.account_ ? html.account_->URLAtcmts() : std::string();
  std::string rewritten;
  rewritten.reserve(text.size() + html.links_.size() * 64);
  size_t from = 0;
  for (const MultipartEntity::Link& link : html.links_) {
    const auto target = link.target.lock();
    if (!target || target->name_on_server_.empty()) continue;
    rewritten += text.substr(from, link.begin - from);
    if (link.bare) rewritten += '"';
    rewritten += AddressOf(url, target->name_on_server_);
    if (link.bare) rewritten += '"';
    from = link.end;
  }
  rewritten += text.substr(from);
  return rewritten;
}

}  // namespace korvane
