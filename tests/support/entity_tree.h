// Entities built from short texts, and trees as text, so that a test can say what it expects.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "mime/header_fields.h"
#include "mime/multipart_entity.h"

namespace korvane::test {

/// The text with its LF as CR LF.
inline std::string Crlf(std::string_view text) {
  std::string lines;
  for (const char c : text) {
    if (c == '\n') lines += '\r';
    lines += c;
  }
  return lines;
}

inline ContentFields FieldsOf(std::string_view content_type, std::string_view encoding = {},
                              std::string_view disposition = {}) {
  ContentFields fields;
  fields.content_type = content_type;
  fields.transfer_encoding = encoding;
  fields.disposition = disposition;
  fields.Classify(EEntitySubType::PredNotImportant);
  return fields;
}

/// A multipart root over `body` (LF line ends), which begins behind the blank line.
inline std::shared_ptr<MultipartEntity> MultipartOf(std::string_view content_type,
                                                    std::string_view body,
                                                    std::shared_ptr<MailUser> account = nullptr) {
  auto root = std::make_shared<MultipartEntity>();
  int32_t counter = 0;
  root->InitMultipartRoot(FieldsOf(content_type), std::move(account), counter,
                          "\r\n\r\n" + Crlf(body));
  return root;
}

/// The only part of a multipart/mixed that has these header lines and this body (LF line ends).
inline std::shared_ptr<MultipartEntity> PartOf(std::string_view header, std::string_view body = "x",
                                               std::string_view parent = "multipart/mixed") {
  std::string text = "--b\n";
  text += header;
  if (!header.empty()) text += "\n";
  text += "\n";
  text += body;
  text += "\n--b--\n";
  const auto root = MultipartOf(std::string(parent) + "; boundary=b", text);
  return root->Children().size() == 1 ? root->Children()[0] : nullptr;
}

/// "0 multipart(1 Text 'one' 2 Image 'x.gif'*)": number, type and data (a text) or name (a file,
/// with "*" when it is an attachment).
inline std::string TreeOf(const MultipartEntity& entity) {
  constexpr const char* kTypes[] = {"Text",        "Image",     "audio",  "video",
                                    "application", "multipart", "message"};
  const auto type = static_cast<size_t>(entity.Fields().type);
  std::string tree = std::to_string(entity.EntityNumber()) + " ";
  tree += type < std::size(kTypes) ? kTypes[type] : "?";
  if (entity.Fields().type == EEntityType::multipart) {
    tree += "(";
    for (const auto& child : entity.Children()) {
      if (tree.back() != '(') tree += " ";
      tree += TreeOf(*child);
    }
    return tree + ")";
  }
  const bool file = entity.Fields().type != EEntityType::Text || entity.IsAttachment();
  tree += " '" + (file ? entity.Name() : entity.Data()) + "'";
  return entity.IsAttachment() ? tree + "*" : tree;
}

}  // namespace korvane::test
