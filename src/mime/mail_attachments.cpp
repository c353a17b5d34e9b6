#include "mime/mail_attachments.h"

#include <utility>

#include "frame/error_numbers.h"

namespace korvane {

std::shared_ptr<MailAttachment> MailAttachments::ItemIndex(int32_t lIndex) {
  ClearError();
  auto item = items_.AtPosition(lIndex);
  if (!item) SetError(kNoSuchPosition);
  return item;
}

std::shared_ptr<MailAttachment> MailAttachments::Item(int32_t lKey) {
  ClearError();
  auto item = items_.WithKey(lKey);
  if (!item) SetError(kNoSuchKey);
  return item;
}

bool MailAttachments::BuildAttachmentList(const std::shared_ptr<MultipartEntity>& root,
                                          const std::vector<std::shared_ptr<UUAtcmt>>& files) {
  ClearError();
  if (root) ListEntities(root);
  for (const auto& file : files) {
    auto attachment = std::make_shared<MailAttachment>();
    if (attachment->SetUUSource(file)) {
      const int32_t key = attachment->Id();
      items_.Add(std::move(attachment), key);
    } else {
      SetError(error::UUAttachmentNotListed);
    }
  }
  // What can be listed is worth more than the report of what cannot.
  if (Count() > 0) ClearError();
  return NoError();
}

bool MailAttachments::ListEntities(const std::shared_ptr<MultipartEntity>& entity) {
  if (entity && entity->Fields().type == EEntityType::multipart) {
    for (const auto& child : entity->Children()) ListEntities(child);
    return NoError();
  }
  if (entity && !entity->IsAttachment()) return NoError();
  auto attachment = std::make_shared<MailAttachment>();
  if (attachment->SetEntitySource(entity)) {
    const int32_t key = attachment->Id();
    items_.Add(std::move(attachment), key);
  } else {
    SetError(error::EntityAttachmentNotListed);
  }
  return NoError();
}

}  // namespace korvane
