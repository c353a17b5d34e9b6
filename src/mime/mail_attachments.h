// MailAttachments: the attachments of one message, MIME parts first, uuencoded files after them.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "../frame/any.h"
#include "../frame/error_state.h"
#include "../frame/keyed_collection.h"
#include "mail_attachment.h"

namespace korvane {

class MailAttachments : public Object, public ErrorState {
 public:
  /// By position, counted from 1. Error 9 when there is none.
  std::shared_ptr<MailAttachment> ItemIndex(int32_t lIndex);
  /// By the attachment's Id. Error 5 when there is none.
  std::shared_ptr<MailAttachment> Item(int32_t lKey);
  int32_t Count() const { return static_cast<int32_t>(items_.size()); }

  /// Internal: lists the attachments of a tree and the uuencoded files. Errors 1012 and 1013.
  bool BuildAttachmentList(const std::shared_ptr<MultipartEntity>& root,
                           const std::vector<std::shared_ptr<UUAtcmt>>& files);

  /// Internal: lists one tree. Error 1012; an attachment that can be listed is all the same.
  bool ListEntities(const std::shared_ptr<MultipartEntity>& entity);

 private:
  KeyedCollection<MailAttachment> items_;
};

}  // namespace korvane
