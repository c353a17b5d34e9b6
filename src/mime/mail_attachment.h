// MailAttachment: one attachment, backed by a MIME entity or by a uuencoded file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "../frame/any.h"
#include "../frame/error_state.h"
#include "multipart_entity.h"
#include "uu_attachment.h"

namespace korvane {

class MailAttachment : public Object, public ErrorState {
 public:
  /// The entity's number, or the uuencoded file's; 0 without a source.
  int32_t Id() const;
  /// The name to show.
  std::string Name() const;
  /// Entity: the name of the stored file below URLAtcmts, "" when none was written. Uuencoded file:
  /// the full path of the stored file.
  std::string NameOnServer() const;
  /// Names the file of an attachment being composed; ignored for a MIME entity.
  void NM_FileName(const std::string& value);

  // Internal. Errors 1009 and 1010.
  bool SetEntitySource(std::shared_ptr<MultipartEntity> entity);
  bool SetUUSource(std::shared_ptr<UUAtcmt> file);

 private:
  std::shared_ptr<MultipartEntity> entity_;
  std::shared_ptr<UUAtcmt> uu_;
};

}  // namespace korvane
