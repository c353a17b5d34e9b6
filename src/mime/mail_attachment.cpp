#include "mime/mail_attachment.h"

#include <utility>

#include "frame/error_numbers.h"

namespace korvane {

int32_t MailAttachment::Id() const {
  if (entity_) return entity_->EntityNumber();
  return uu_ ? uu_->UUNumber() : 0;
}

std::string MailAttachment::Name() const {
  if (entity_) return entity_->Name();
  return uu_ ? uu_->UUName() : std::string();
}

std::string MailAttachment::NameOnServer() const {
  if (entity_) return entity_->NameOnServer();
  return uu_ ? uu_->UUNameOnServer() : std::string();
}

void MailAttachment::NM_FileName(const std::string& value) {
  if (uu_) uu_->UUName(value);
}

bool MailAttachment::SetEntitySource(std::shared_ptr<MultipartEntity> entity) {
  ClearError();
  if (!entity) {
    SetError(error::AttachmentWithoutEntity);
    return false;
  }
  entity_ = std::move(entity);
  uu_.reset();
  return true;
}

bool MailAttachment::SetUUSource(std::shared_ptr<UUAtcmt> file) {
  ClearError();
  if (!file) {
    SetError(error::AttachmentWithoutUUFile);
    return false;
  }
  uu_ = std::move(file);
  entity_.reset();
  return true;
}

}  // namespace korvane
