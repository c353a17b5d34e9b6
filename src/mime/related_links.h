// The references from HTML to the other parts of a multipart/related. They are found once, when the
// message is parsed, so that a part that no HTML refers to can be offered as an attachment; the
// addresses are put in when the parts have their names.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "multipart_entity.h"

namespace korvane {

class RelatedLinks {
 public:
  /// An address may be a hundred times as long as what it replaces: a mail made of links alone
  /// would fill the memory, and its record the message file. Links beyond this many in one message
  /// stay as they are.
  static constexpr size_t kMostLinks = 100'000;

  /// Finds the links of the whole tree below `root`. A part of a multipart/related that nothing
  /// links to becomes an attachment.
  static void FindIn(MultipartEntity& root);

  /// The HTML of an entity with the addresses of the stored files in its links.
  static std::string Rewritten(const MultipartEntity& html);

 private:
  /// The parts of one multipart/related by what HTML calls them.
  using Parts = std::unordered_map<std::string, std::shared_ptr<MultipartEntity>>;

  void Walk(MultipartEntity& entity);
  void FindInHtml(MultipartEntity& html);
  std::shared_ptr<MultipartEntity> PartFor(std::string_view address) const;
  std::shared_ptr<MultipartEntity> PartCalled(std::string_view name) const;
  static std::string KeyOf(const MultipartEntity& part);
  static Parts PartsOf(const MultipartEntity& related);

  std::vector<Parts> open_;  ///< of the multipart/related around the entity, the innermost last
  std::unordered_set<const MultipartEntity*> linked_;
  size_t count_ = 0;  ///< links found in the whole message
};

}  // namespace korvane
