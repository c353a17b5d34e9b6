// The text to show of an entity: which parts, in which order, which of the alternatives.
#include "frame/code_page.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "mime/body_text.h"
#include "mime/multipart_entity.h"

namespace korvane {

bool MultipartEntity::GetMajorText(std::string& sText, ETextAlternativeType atAlternativeType,
                                   ETextFormat tfTextFormat, bool bOnlyIfCorrect,
                                   std::string_view sMessageSeparatorString,
                                   bool bExitOnFirstFind) {
  ClearError();
  switch (fields_.type) {
    case EEntityType::Text:
      return TextOfPart(sText, atAlternativeType, tfTextFormat, bOnlyIfCorrect,
                        sMessageSeparatorString);
    case EEntityType::multipart:
      break;
    default:
      SetError(error::PartIsNoText);
      return false;
  }
  if (children_.empty()) {
    SetError(error::MultipartWithoutParts);
    return false;
  }
  int32_t without_text = 0;
  switch (fields_.subtype) {
    case EEntitySubType::alternative:
      return TextOfAlternative(sText, atAlternativeType, tfTextFormat, bOnlyIfCorrect,
                               sMessageSeparatorString);
    case EEntitySubType::Mixed:
      without_text = error::MixedWithoutText;
      break;
    case EEntitySubType::Parallel:
      without_text = error::ParallelWithoutText;
      break;
    case EEntitySubType::Digest:
      without_text = error::DigestWithoutText;
      break;
    case EEntitySubType::related:
      without_text = error::RelatedWithoutText;
      break;
    default:
      SetError(error::UnknownMultipart);
      return false;
  }
  if (!TextOfChildren(sText, atAlternativeType, tfTextFormat, bOnlyIfCorrect,
                      sMessageSeparatorString, bExitOnFirstFind)) {
    SetError(without_text);
    return false;
  }
  return true;
}

bool MultipartEntity::TextOfPart(std::string& text, ETextAlternativeType alternative,
                                 ETextFormat format, bool only_if_correct,
                                 std::string_view separator) {
  if (fields_.disposition_kind != EContentDisposition::ContDisp_Default &&
      fields_.disposition_kind != EContentDisposition::ContDisp_Inline) {
    SetError(error::TextIsAttachment);
    return false;
  }
  const EEntitySubType wanted = alternative == ETextAlternativeType::AlterType_Text
                                    ? EEntitySubType::plain
                                    : EEntitySubType::html;
  if (alternative != ETextAlternativeType::AlterType_Default && only_if_correct &&
      fields_.subtype != wanted) {
    SetError(error::WrongAlternative);
    return false;
  }
  if (is_attachment_) {
    // Its content is the sender's bytes; once stored, those of its file alone.
    std::string bytes;
    if (!freshly_parsed_ && !ReadWholeFile(FilePath(), bytes)) {
      SetError(error::EntityTextNotRead);
      return false;
    }
    AppendBodyText(text, ToUtf8(freshly_parsed_ ? data_ : std::move(bytes)), fields_.subtype,
                   format);
  } else {
    AppendBodyText(text, data_, fields_.subtype, format);
  }
  text += separator;
  return true;
}

bool MultipartEntity::TextOfChildren(std::string& text, ETextAlternativeType alternative,
                                     ETextFormat format, bool only_if_correct,
                                     std::string_view separator, bool exit_on_first_find) {
  bool found = false;
  for (const auto& child : children_) {
    if (!child->GetMajorText(text, alternative, format, only_if_correct, separator,
                             exit_on_first_find)) {
      continue;
    }
    found = true;
    if (exit_on_first_find) break;
  }
  return found;
}

// The wanted alternative is searched strictly first; without it, the first that yields text counts.
bool MultipartEntity::TextOfAlternative(std::string& text, ETextAlternativeType alternative,
                                        ETextFormat format, bool only_if_correct,
                                        std::string_view separator) {
  if (alternative != ETextAlternativeType::AlterType_Default &&
      TextOfChildren(text, alternative, format, true, separator, true)) {
    return true;
  }
  if (TextOfChildren(text, ETextAlternativeType::AlterType_Default, format, only_if_correct,
                     separator, true)) {
    return true;
  }
  SetError(error::AlternativeWithoutText);
  text += separator;
  return false;
}

}  // namespace korvane
