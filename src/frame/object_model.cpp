#include "frame/object_model.h"

#include <algorithm>
#include <array>

namespace korvane::model {

namespace {

constexpr Default kRequired{};
constexpr Default Number(int32_t value) { return {Default::Kind::kNumber, value}; }
constexpr Default kFalse{Default::Kind::kBool, 0};
constexpr Default kTrue{Default::Kind::kBool, 1};
constexpr Default kEmpty{Default::Kind::kEmptyText, 0};

constexpr Parameter Int32(std::string_view name, Default omitted = kRequired) {
  return {name, Type::kInt32, "", omitted};
}
constexpr Parameter Bool(std::string_view name, Default omitted = kRequired) {
  return {name, Type::kBool, "", omitted};
}
constexpr Parameter Text(std::string_view name, Default omitted = kRequired) {
  return {name, Type::kText, "", omitted};
}
constexpr Parameter AnyValue(std::string_view name, Default omitted = kRequired) {
  return {name, Type::kAny, "", omitted};
}
constexpr Parameter Result(std::string_view name, Default omitted = kRequired) {
  return {name, Type::kAny, "", omitted, true};
}
constexpr Parameter Enum(std::string_view name, std::string_view of, Default omitted = kRequired) {
  return {name, Type::kEnum, of, omitted};
}
constexpr Parameter Instance(std::string_view name, std::string_view of) {
  return {name, Type::kObject, of, kRequired};
}

constexpr Member Get(std::string_view name, Type result,
                     std::span<const Parameter> parameters = {}) {
  return {Kind::kGet, name, parameters, result, ""};
}
constexpr Member GetObject(std::string_view name, std::string_view of,
                           std::span<const Parameter> parameters = {}) {
  return {Kind::kGet, name, parameters, Type::kObject, of};
}
constexpr Member Let(std::string_view name, std::span<const Parameter> value) {
  return {Kind::kLet, name, value, Type::kNothing, ""};
}
constexpr Member Call(std::string_view name, Type result,
                      std::span<const Parameter> parameters = {}) {
  return {Kind::kCall, name, parameters, result, ""};
}
constexpr Member CallForObject(std::string_view name, std::string_view of,
                               std::span<const Parameter> parameters = {}) {
  return {Kind::kCall, name, parameters, Type::kObject, of};
}

constexpr Parameter kTextValue[] = {Text("value")};
constexpr Parameter kInt32Value[] = {Int32("value")};
constexpr Parameter kAnyInput[] = {AnyValue("value")};
constexpr Parameter kPosition[] = {Int32("lIndex")};
constexpr Parameter kKey[] = {Int32("lKey")};

// MailMessage
constexpr Parameter kSubject[] = {Enum("tfTextFormat", "ETextFormat", Number(1))};
constexpr Parameter kMessageBody[] = {
    Result("sMessageBody"), Enum("taAlternativeType", "ETextAlternativeType", Number(2)),
    Enum("tfTextFormat", "ETextFormat", Number(1)), Bool("bOnlyIfAlterTypeIsCorrect", kFalse)};
constexpr Parameter kSave[] = {AnyValue("cnnDataBase"), Int32("lIdBoxToSaveIn", Number(3))};
constexpr Member kMailMessage[] = {
    Get("Id", Type::kInt32),
    Get("Letto", Type::kBool),
    Get("IdOnServer", Type::kInt32),
    Get("MessageUIDL", Type::kText),
    Get("MessageSeparator", Type::kText),
    Let("MessageSeparator", kTextValue),
    Get("OriginalHeader", Type::kText),
    Get("ExistAttachments", Type::kBool),
    Get("ReturnPath", Type::kText),
    Get("ReturnPathAddress", Type::kText),
    Get("ReplyTo", Type::kText),
    Get("ReplyToName", Type::kText),
    Get("ReplyToAddress", Type::kText),
    Get("From", Type::kText),
    Get("FromName", Type::kText),
    Get("FromMailAddress", Type::kText),
    Get("Sender", Type::kText),
    Get("SenderName", Type::kText),
    Get("SenderAddress", Type::kText),
    Get("SendDate", Type::kText),
    Get("ReceivedDate", Type::kText),
    Get("MessageTo", Type::kText),
    Get("MessageToName", Type::kText),
    Get("MessageToAddress", Type::kText),
    Get("CC", Type::kText),
    Get("CC_Name", Type::kText),
    Get("CC_Address", Type::kText),
    Get("BCC", Type::kText),
    Get("BCC_Name", Type::kText),
    Get("BCC_Address", Type::kText),
    Get("MessageID", Type::kText),
    Get("InReplyTo", Type::kText),
    Get("References", Type::kText),
    Get("Keywords", Type::kText),
    Get("Subject", Type::kText, kSubject),
    Get("Comments", Type::kText),
    Get("Encrypted", Type::kText),
    Get("Received", Type::kText),
    Get("Size", Type::kInt32),
    Let("NM_ReplyTo", kTextValue),
    Let("NM_From", kTextValue),
    Let("NM_Sender", kTextValue),
    Let("NM_SendDate", kTextValue),
    Let("NM_MessageTo", kTextValue),
    Let("NM_CC", kTextValue),
    Let("NM_BCC", kTextValue),
    Let("NM_InReplyTo", kTextValue),
    Let("NM_Subject", kTextValue),
    Let("NM_MessageBody", kTextValue),
    Let("NM_Size", kInt32Value),
    Get("GetLastError", Type::kAny),
    Get("GetLastErrorDesc", Type::kAny),
    Call("MessageBody", Type::kBool, kMessageBody),
    CallForObject("GetAttachments", "MailAttachments"),
    CallForObject("NM_NewAttachment", "MailAttachment"),
    Call("NM_Save", Type::kBool, kSave),
};

// MailMessages
constexpr Parameter kAdd[] = {Instance("oMessage", "MailMessage"), Int32("lKey")};
constexpr Member kMailMessages[] = {
    Call("Add", Type::kNothing, kAdd),      GetObject("ItemIndex", "MailMessage", kPosition),
    GetObject("Item", "MailMessage", kKey), Get("Count", Type::kInt32),
    Get("GetLastError", Type::kAny),        Get("GetLastErrorDesc", Type::kAny),
};

// WebInterface
constexpr Parameter kWebInit[] = {AnyValue("oBoss"), Int32("lAccountId", Number(-100))};
constexpr Parameter kVerifyAccount[] = {Int32("lAccountId", Number(-10))};
constexpr Parameter kWebList[] = {Int32("lBoxId"),
                                  Int32("lServerId", Number(-10)),
                                  Bool("bDownloadHeaderOnly", kTrue),
                                  Bool("bDeleteMessageOnMailServer", kFalse),
                                  Text("sMsgSeparator", kEmpty),
                                  Bool("bFirstDownload", kFalse),
                                  Enum("moMailOrder", "EMailOrder", Number(0)),
                                  Enum("modMailOrderDirection", "EMailOrderDirection", Number(1)),
                                  Int32("lPageNum", Number(-1)),
                                  Result("lTotPages", Number(0)),
                                  Result("lTotMails", Number(0)),
                                  Enum("modOrderDataDirection", "EMailOrderDirection", Number(1))};
constexpr Parameter kWebGet[] = {Int32("lMessageId"), Bool("bDeleteMessageOnMailServer", kFalse),
                                 Text("sMessageSeparator", kEmpty)};
constexpr Parameter kWebDelete[] = {AnyValue("vMessagesId"),
                                    Enum("ldtDeleteType", "EDelType", Number(2))};
constexpr Parameter kNewMessage[] = {Text("sMsgSeparator", kEmpty)};
constexpr Member kWebInterface[] = {
    Get("Version", Type::kText),
    Let("Username", kTextValue),
    Get("Username", Type::kText),
    Let("Password", kTextValue),
    Get("Password", Type::kText),
    Let("MailServer", kTextValue),
    Get("MailServer", Type::kText),
    Let("ServerPort", kInt32Value),
    Get("ServerPort", Type::kInt32),
    Let("ServerTimeout", kInt32Value),
    Get("ServerTimeout", Type::kInt32),
    Let("UserId", kInt32Value),
    Get("UserId", Type::kInt32),
    Let("MailListPageSize", kInt32Value),
    Get("MailListPageSize", Type::kInt32),
    Let("ConnDataBase", kAnyInput),
    Get("GetLastError", Type::kAny),
    Get("GetLastErrorDesc", Type::kAny),
    Call("Init", Type::kBool, kWebInit),
    Call("Finish", Type::kBool),
    Call("VerifyAccount", Type::kBool, kVerifyAccount),
    CallForObject("GetListMessagesInBox", "MailMessages", kWebList),
    CallForObject("GetMessage", "MailMessage", kWebGet),
    Call("DeleteMessage", Type::kBool, kWebDelete),
    CallForObject("NewMessage", "MailMessage", kNewMessage),
    Call("BackgroundClean", Type::kBool),
};

// MailAttachment, MailAttachments
constexpr Member kMailAttachment[] = {
    Get("Id", Type::kInt32),          Get("Name", Type::kText),
    Get("NameOnServer", Type::kText), Let("NM_FileName", kTextValue),
    Get("GetLastError", Type::kAny),  Get("GetLastErrorDesc", Type::kAny),
};
constexpr Member kMailAttachments[] = {
    GetObject("ItemIndex", "MailAttachment", kPosition),
    GetObject("Item", "MailAttachment", kKey),
    Get("Count", Type::kInt32),
    Get("GetLastError", Type::kAny),
    Get("GetLastErrorDesc", Type::kAny),
};

// MultipartEntity, UUAtcmt
constexpr Parameter kMajorText[] = {Result("sText"),
                                    Enum("atAlternativeType", "ETextAlternativeType"),
                                    Enum("tfTextFormat", "ETextFormat"),
                                    Bool("bOnlyIfCorrect"),
                                    Text("sMessageSeparatorString"),
                                    Bool("bExitOnFirstFind")};
constexpr Member kMultipartEntity[] = {
    Get("GetLastError", Type::kAny),
    Get("GetLastErrorDesc", Type::kAny),
    Call("GetMajorText", Type::kBool, kMajorText),
};
constexpr Member kUUAtcmt[] = {
    Get("GetLastError", Type::kAny),
    Get("GetLastErrorDesc", Type::kAny),
};

// BossObject
constexpr Parameter kBossInit[] = {Int32("lKorvaneId")};
constexpr Parameter kBossInit2[] = {AnyValue("cnnDataBase")};
constexpr Member kBossObject[] = {
    Get("KorvaneId", Type::kInt32),          Get("PathAtcmts", Type::kText),
    Get("URLAtcmts", Type::kText),           Get("PathMessages", Type::kText),
    Get("PathAtcmtsInvio", Type::kText),     Get("PathLog", Type::kText),
    Get("PathBackgrDwnloader", Type::kText), Get("DbConnectionString", Type::kText),
    Get("DebugMode", Type::kInt32),          Get("ServerTimeout", Type::kInt32),
    Get("IsEnglishDate", Type::kInt32),      Get("GetLastError", Type::kAny),
    Get("GetLastErrorDesc", Type::kAny),     Call("Init", Type::kBool, kBossInit),
    Call("Init2", Type::kBool, kBossInit2),
};

// BasicInterface
constexpr Parameter kBasicInit[] = {Bool("bOpenConnection", kTrue)};
constexpr Parameter kBasicList[] = {Int32("lBoxId"), Int32("lPageNum", Number(-1)),
                                    Result("lTotPages", Number(0)), Result("lTotMails", Number(0))};
constexpr Parameter kBasicGet[] = {Int32("lMessageId"), Text("sMessageSeparator", kEmpty)};
constexpr Parameter kBasicGetUidl[] = {Int32("lMessageId"), Text("sUIDL_mail"),
                                       Text("sMessageSeparator", kEmpty)};
constexpr Parameter kBasicDelete[] = {Int32("lMessageId")};
constexpr Parameter kBasicDeleteUidl[] = {Int32("lMessageId"), Text("sUIDL_mail")};
constexpr Member kBasicInterface[] = {
    Get("Version", Type::kText),
    Let("Username", kTextValue),
    Get("Username", Type::kText),
    Let("Password", kTextValue),
    Get("Password", Type::kText),
    Let("MailServer", kTextValue),
    Get("MailServer", Type::kText),
    Let("ServerPort", kInt32Value),
    Get("ServerPort", Type::kInt32),
    Let("ServerTimeout", kInt32Value),
    Get("ServerTimeout", Type::kInt32),
    Let("UserId", kInt32Value),
    Get("UserId", Type::kInt32),
    Let("MailListPageSize", kInt32Value),
    Get("MailListPageSize", Type::kInt32),
    Get("GetLastError", Type::kAny),
    Get("GetLastErrorDesc", Type::kAny),
    Call("Init", Type::kBool, kBasicInit),
    Call("Finish", Type::kBool),
    CallForObject("GetListMessagesInBox", "MailMessages", kBasicList),
    CallForObject("GetMessage", "MailMessage", kBasicGet),
    CallForObject("GetMessageUIDL", "MailMessage", kBasicGetUidl),
    Call("DeleteMessage", Type::kBool, kBasicDelete),
    Call("DeleteMessageUIDL", Type::kBool, kBasicDeleteUidl),
};

constexpr Class kClasses[] = {
    {"MailMessage", false, "one message: header fields, body, attachments, new-message fields",
     kMailMessage},
    {"MailMessages", false, "one page of a box, with the messages' Ids as keys", kMailMessages},
    {"WebInterface", true, "the per-user facade that a site's pages use", kWebInterface},
    {"MailAttachment", false, "one attachment saved as a file", kMailAttachment},
    {"MailAttachments", false, "the attachments of a message", kMailAttachments},
    {"MultipartEntity", false, "one MIME entity", kMultipartEntity},
    {"MailUser", false, "the user's mail account; all its operations are internal", {}},
    {"UUAtcmt", false, "a uuencoded attachment", kUUAtcmt},
    {"BossObject", true, "the settings of one installation", kBossObject},
    {"BasicInterface", true, "the reduced facade, straight on the POP3 server", kBasicInterface},
};

constexpr EnumerationMember kETextAlternativeType[] = {
    {"AlterType_Default", 0}, {"AlterType_Text", 1}, {"AlterType_Html", 2}};
constexpr EnumerationMember kETextFormat[] = {
    {"TextFormat_Normal", 0}, {"TextFormat_HTML", 1}, {"TextFormat_HTMLNoPRE", 2}};
constexpr EnumerationMember kEContentDisposition[] = {
    {"ContDisp_Default", 0}, {"ContDisp_Attachment", 1}, {"ContDisp_Inline", 2}};
constexpr EnumerationMember kEEntityType[] = {{"Text", 0},   {"Image", 1},       {"audio", 2},
                                              {"video", 3},  {"application", 4}, {"multipart", 5},
                                              {"message", 6}};
constexpr EnumerationMember kEEntitySubType[] = {{"plain", 0},
                                                 {"html", 1},
                                                 {"enriched", 2},
                                                 {"richtext", 3},
                                                 {"jpeg", 4},
                                                 {"bmp", 5},
                                                 {"gif", 6},
                                                 {"basic", 7},
                                                 {"mpeg", 8},
                                                 {"octet_stream", 9},
                                                 {"postscript", 10},
                                                 {"Mixed", 11},
                                                 {"alternative", 12},
                                                 {"Parallel", 13},
                                                 {"Digest", 14},
                                                 {"related", 15},
                                                 {"Rfc822", 16},
                                                 {"partial", 17},
                                                 {"external_Body", 18},
                                                 {"Unrecognized", 19},
                                                 {"PredNotImportant", 20}};
constexpr EnumerationMember kECharset[] = {{"us_ascii", 0}, {"iso_8859_x", 1}, {"UTF_8", 2}};
constexpr EnumerationMember kEContentTransferEncoding[] = {
    {"T7Bit", 0}, {"T8Bit", 1}, {"Binary", 2}, {"quoted_printable", 3}, {"base64", 4}};
constexpr EnumerationMember kEDelType[] = {
    {"DEL_TYPE_SERVER", 0}, {"DEL_TYPE_LOCALE", 1}, {"DEL_TYPE_LOCALE_SERVER", 2}};
constexpr EnumerationMember kEMailOrder[] = {{"ORDER_DATA", 0},
                                             {"ORDER_NAME", 1},
                                             {"ORDER_OBJECT", 2},
                                             {"ORDER_SIZE", 3},
                                             {"ORDER_NAME_TO", 4}};
constexpr EnumerationMember kEMailOrderDirection[] = {{"ORDER_ASC", 0}, {"ORDER_DESC", 1}};
constexpr Enumeration kEnumerations[] = {
    {"ETextAlternativeType", "which alternative of a body is wanted", kETextAlternativeType},
    {"ETextFormat", "how text is returned", kETextFormat},
    {"EContentDisposition", "the Content-Disposition of an entity", kEContentDisposition},
    {"EEntityType", "MIME top-level type", kEEntityType},
    {"EEntitySubType", "MIME subtype", kEEntitySubType},
    {"ECharset", "character set of a text entity", kECharset},
    {"EContentTransferEncoding", "Content-Transfer-Encoding", kEContentTransferEncoding},
    {"EDelType", "where a message is deleted", kEDelType},
    {"EMailOrder", "sort key of a box listing", kEMailOrder},
    {"EMailOrderDirection", "direction of a sort key", kEMailOrderDirection},
};

}  // namespace

std::span<const Class> Classes() { return kClasses; }
std::span<const Enumeration> Enumerations() { return kEnumerations; }

const Class* FindClass(std::string_view name) {
  const auto* found = std::ranges::find(kClasses, name, &Class::name);
  return found == std::end(kClasses) ? nullptr : found;
}

const Member* FindMember(const Class& of, std::string_view name, Kind kind) {
  for (const Member& member : of.members) {
    if (member.kind == kind && member.name == name) return &member;
  }
  return nullptr;
}

}  // namespace korvane::model
