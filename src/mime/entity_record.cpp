// MultipartEntity in the store: the names of its files, the files, and its block in a record. The
// layout of a block is docs/message_file.md.
#include <utility>

#include "facade/mail_user.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/record_io.h"
#include "mime/multipart_entity.h"
#include "mime/related_links.h"
#include "mime/stored_name.h"

namespace korvane {

namespace {

constexpr int32_t kMarker = 1;
// Nothing nests deeper for a reason; a damaged record must not exhaust the stack.
constexpr int32_t kDeepest = 1'000;
// A block with empty texts: 18 numbers of 4 bytes (the texts' counts among them) and one of 2.
constexpr int64_t kSmallestBlock = 19 * 4 + 2;

}  // namespace

std::string MultipartEntity::FilePath() const {
  // What a record says is not trusted to name a file in the directory.
  if (!account_ || account_->PathAtcmts().empty() || name_on_server_.empty() ||
      name_on_server_.find_first_of(std::string_view("/\\\0", 3)) != std::string::npos) {
    return {};
  }
  return JoinPath(account_->PathAtcmts(), name_on_server_);
}

bool MultipartEntity::SaveEntityFiles(int32_t message_id, RecordWriter* store, bool write_files,
                                      std::vector<std::string>* written) {
  const bool has_directory = account_ && !account_->PathAtcmts().empty();
  NameFiles(message_id, has_directory || !write_files);
  RewriteLinks(write_files && has_directory);
  return SaveTree(store, write_files && has_directory, written);
}

// A name that was stored with a message is final; only a new message is given names.
void MultipartEntity::NameFiles(int32_t message_id, bool keep) {
  if (freshly_parsed_) {
    const bool has_file = fields_.type != EEntityType::multipart &&
                          (fields_.type != EEntityType::Text || is_attachment_);
    name_on_server_ = has_file && keep ? StoredFileName(account_ ? account_->UserId() : 0,
                                                        message_id, entity_number_, name_)
                                       : std::string();
  }
  for (const auto& child : children_) child->NameFiles(message_id, keep);
}

// Begins from the untouched HTML: an earlier attempt may have been under another number.
void MultipartEntity::RewriteLinks(bool rewrite) {
  if (!unlinked_html_.empty()) data_ = std::exchange(unlinked_html_, {});
  if (rewrite && !links_.empty()) {
    std::string html = RelatedLinks::Rewritten(*this);
    unlinked_html_ = std::exchange(data_, std::move(html));
  }
  for (const auto& child : children_) child->RewriteLinks(rewrite);
}

bool MultipartEntity::SaveTree(RecordWriter* store, bool write_files,
                               std::vector<std::string>* written) {
  ClearError();
  if (write_files && freshly_parsed_ && !name_on_server_.empty() && !WriteFile(written)) {
    // The block must not name a file that is not there.
    name_on_server_.clear();
    SetError(error::EntityNotSaved);
  }
  if (store != nullptr) {
    WriteBlock(*store);
    if (!store->Ok()) {
      SetError(error::EntityNotSaved);
      store = nullptr;
    }
  }
  for (const auto& child : children_) {
    if (!child->SaveTree(store, write_files, written)) {
      SetError(error::EntityNotSaved);
      store = nullptr;
    }
  }
  return NoError();
}

bool MultipartEntity::WriteFile(std::vector<std::string>* written) {
  std::string path = FilePath();
  if (path.empty() || !WriteWholeFile(path, data_)) return false;
  if (written != nullptr) written->push_back(std::move(path));
  return true;
}

void MultipartEntity::WriteBlock(RecordWriter& store) const {
  store.Int32(kMarker);
  store.Int32(static_cast<int32_t>(children_.size()));
  store.Text(fields_.content_type);
  store.Text(fields_.transfer_encoding);
  store.Text(fields_.disposition);
  store.Text(fields_.location);
  store.Text(fields_.id);
  store.Text(boundary_);
  store.Bool16(is_attachment_);
  store.Text(name_);
  store.Text(name_on_server_);
  store.Int32(static_cast<int32_t>(fields_.type));
  store.Int32(static_cast<int32_t>(fields_.subtype));
  store.Int32(static_cast<int32_t>(fields_.charset));
  store.Int32(static_cast<int32_t>(fields_.encoding));
  store.Int32(static_cast<int32_t>(fields_.disposition_kind));
  store.Int32(static_cast<int32_t>(parent_subtype_));
  store.Int32(static_cast<int32_t>(related_reference_));
  if (fields_.type == EEntityType::Text && !is_attachment_) store.Text(data_);
  store.Int32(GetLastError());
  store.Text(GetLastErrorDesc());
}

bool MultipartEntity::LoadEntity(const std::shared_ptr<MailUser>& account, int32_t& counter,
                                 RecordReader& store) {
  return LoadTree(account, counter, store, 0);
}

bool MultipartEntity::LoadTree(const std::shared_ptr<MailUser>& account, int32_t& counter,
                               RecordReader& store, int32_t depth) {
  account_ = account;
  entity_number_ = counter;
  freshly_parsed_ = false;
  const bool marked = store.Int32() == kMarker;
  const int32_t children = store.Int32();
  if (!marked || !store.Ok() || depth > kDeepest || children < 0 ||
      children > store.Remaining() / kSmallestBlock) {
    store.Fail();
    return false;
  }
  fields_.content_type = store.Text();
  fields_.transfer_encoding = store.Text();
  fields_.disposition = store.Text();
  fields_.location = store.Text();
  fields_.id = store.Text();
  boundary_ = store.Text();
  is_attachment_ = store.Bool16();
  name_ = store.Text();
  name_on_server_ = store.Text();
  fields_.type = static_cast<EEntityType>(store.Int32());
  fields_.subtype = static_cast<EEntitySubType>(store.Int32());
  fields_.charset = static_cast<ECharset>(store.Int32());
  fields_.encoding = static_cast<EContentTransferEncoding>(store.Int32());
  fields_.disposition_kind = static_cast<EContentDisposition>(store.Int32());
  parent_subtype_ = static_cast<EEntitySubType>(store.Int32());
  related_reference_ = static_cast<Reference>(store.Int32());
  if (fields_.type == EEntityType::Text && !is_attachment_) data_ = store.Text();
  const int32_t number = store.Int32();
  SetError(number, store.Text());
  for (int32_t i = 0; i < children && store.Ok(); ++i) {
    auto child = std::make_shared<MultipartEntity>();
    ++counter;
    if (child->LoadTree(account, counter, store, depth + 1)) children_.push_back(std::move(child));
  }
  return store.Ok();
}

}  // namespace korvane
