#include "bindings.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "arguments.h"
#include "facade/basic_interface.h"
#include "facade/web_interface.h"
#include "frame/boss_object.h"
#include "frame/code_page.h"
#include "frame/database.h"
#include "message/mail_messages.h"

namespace korvane::automation {

namespace {

using model::Kind;
using Arguments = std::span<Any>;

template <class T>
T& As(Object& object) {
  // The handle's class was checked against the member's, so the object is a T.
  return static_cast<T&>(object);
}

int32_t Int(const Any& value) { return static_cast<int32_t>(std::get<int64_t>(value.value())); }
bool Truth(const Any& value) { return std::get<bool>(value.value()); }
const std::string& Text(const Any& value) { return std::get<std::string>(value.value()); }
template <class E>
E Enum(const Any& value) {
  return static_cast<E>(Int(value));
}

/// An object argument: null for no object, a mistake for anything that is no T.
template <class T>
std::shared_ptr<T> Instance(const Any& value, const char* wanted) {
  if (value.IsEmpty() || value.IsNull()) return nullptr;
  const auto* held = std::get_if<std::shared_ptr<Object>>(&value.value());
  if (held && !*held) return nullptr;
  auto object = value.ToObject<T>();
  if (!object) throw ArgumentError(std::string("the argument must be ") + wanted);
  return object;
}
std::shared_ptr<Connection> Database(const Any& value) {
  return Instance<Connection>(value, "a database connection");
}

struct Binding {
  std::string_view type;
  Kind kind;
  std::string_view member;
  Invoke invoke;
};

#define KORVANE_GET(type, member)                                                                 \
  {                                                                                               \
#type, Kind::kGet, #member, [](Object & o, Arguments) -> Any { return As<type>(o).member(); } \
  }
#define KORVANE_CALL(type, member)                                                                 \
  {                                                                                                \
#type, Kind::kCall, #member, [](Object & o, Arguments) -> Any { return As<type>(o).member(); } \
  }
#define KORVANE_LET_TEXT(type, member)                            \
  {                                                               \
#type, Kind::kLet, #member, [](Object& o, Arguments a) -> Any { \
      As<type>(o).member(Text(a[0]));                             \
      return {};                                                  \
    } \
  }
#define KORVANE_LET_INT(type, member)                             \
  {                                                               \
#type, Kind::kLet, #member, [](Object& o, Arguments a) -> Any { \
      As<type>(o).member(Int(a[0]));                              \
      return {};                                                  \
    } \
  }
#define KORVANE_ERRORS(type) KORVANE_GET(type, GetLastError), KORVANE_GET(type, GetLastErrorDesc)
#define KORVANE_COLLECTION(type)                                                    \
  {#type, Kind::kGet, "ItemIndex",                                                  \
   [](Object& o, Arguments a) -> Any { return As<type>(o).ItemIndex(Int(a[0])); }}, \
      {#type, Kind::kGet, "Item",                                                   \
       [](Object& o, Arguments a) -> Any { return As<type>(o).Item(Int(a[0])); }},  \
      KORVANE_GET(type, Count), KORVANE_ERRORS(type)
#define KORVANE_ACCOUNT(type)                                                                \
  KORVANE_GET(type, Version), KORVANE_LET_TEXT(type, Username), KORVANE_GET(type, Username), \
      KORVANE_LET_TEXT(type, Password), KORVANE_GET(type, Password),                         \
      KORVANE_LET_TEXT(type, MailServer), KORVANE_GET(type, MailServer),                     \
      KORVANE_LET_INT(type, ServerPort), KORVANE_GET(type, ServerPort),                      \
      KORVANE_LET_INT(type, ServerTimeout), KORVANE_GET(type, ServerTimeout),                \
      KORVANE_LET_INT(type, UserId), KORVANE_GET(type, UserId),                              \
      KORVANE_LET_INT(type, MailListPageSize), KORVANE_GET(type, MailListPageSize),          \
      KORVANE_ERRORS(type)

const Binding kBindings[] = {
    // MailMessage
    KORVANE_GET(MailMessage, Id),
    KORVANE_GET(MailMessage, Letto),
    KORVANE_GET(MailMessage, IdOnServer),
    KORVANE_GET(MailMessage, MessageUIDL),
    KORVANE_GET(MailMessage, MessageSeparator),
    KORVANE_LET_TEXT(MailMessage, MessageSeparator),
    {"MailMessage", Kind::kGet, "OriginalHeader",
     // The sender's bytes; every other text is UTF-8 already.
     [](Object& o, Arguments) -> Any { return ToUtf8(As<MailMessage>(o).OriginalHeader()); }},
    KORVANE_GET(MailMessage, ExistAttachments),
    KORVANE_GET(MailMessage, ReturnPath),
    KORVANE_GET(MailMessage, ReturnPathAddress),
    KORVANE_GET(MailMessage, ReplyTo),
    KORVANE_GET(MailMessage, ReplyToName),
    KORVANE_GET(MailMessage, ReplyToAddress),
    KORVANE_GET(MailMessage, From),
    KORVANE_GET(MailMessage, FromName),
    KORVANE_GET(MailMessage, FromMailAddress),
    KORVANE_GET(MailMessage, Sender),
    KORVANE_GET(MailMessage, SenderName),
    KORVANE_GET(MailMessage, SenderAddress),
    KORVANE_GET(MailMessage, SendDate),
    KORVANE_GET(MailMessage, ReceivedDate),
    KORVANE_GET(MailMessage, MessageTo),
    KORVANE_GET(MailMessage, MessageToName),
    KORVANE_GET(MailMessage, MessageToAddress),
    KORVANE_GET(MailMessage, CC),
    KORVANE_GET(MailMessage, CC_Name),
    KORVANE_GET(MailMessage, CC_Address),
    KORVANE_GET(MailMessage, BCC),
    KORVANE_GET(MailMessage, BCC_Name),
    KORVANE_GET(MailMessage, BCC_Address),
    KORVANE_GET(MailMessage, MessageID),
    KORVANE_GET(MailMessage, InReplyTo),
    KORVANE_GET(MailMessage, References),
    KORVANE_GET(MailMessage, Keywords),
    {"MailMessage", Kind::kGet, "Subject",
     [](Object& o, Arguments a) -> Any {
       return As<MailMessage>(o).Subject(Enum<ETextFormat>(a[0]));
     }},
    KORVANE_GET(MailMessage, Comments),
    KORVANE_GET(MailMessage, Encrypted),
    KORVANE_GET(MailMessage, Received),
    KORVANE_GET(MailMessage, Size),
    KORVANE_LET_TEXT(MailMessage, NM_ReplyTo),
    KORVANE_LET_TEXT(MailMessage, NM_From),
    KORVANE_LET_TEXT(MailMessage, NM_Sender),
    KORVANE_LET_TEXT(MailMessage, NM_SendDate),
    KORVANE_LET_TEXT(MailMessage, NM_MessageTo),
    KORVANE_LET_TEXT(MailMessage, NM_CC),
    KORVANE_LET_TEXT(MailMessage, NM_BCC),
    KORVANE_LET_TEXT(MailMessage, NM_InReplyTo),
    KORVANE_LET_TEXT(MailMessage, NM_Subject),
    KORVANE_LET_TEXT(MailMessage, NM_MessageBody),
    KORVANE_LET_INT(MailMessage, NM_Size),
    KORVANE_ERRORS(MailMessage),
    {"MailMessage", Kind::kCall, "MessageBody",
     [](Object& o, Arguments a) -> Any {
       std::string text;
       const bool shown = As<MailMessage>(o).MessageBody(text, Enum<ETextAlternativeType>(a[1]),
                                                         Enum<ETextFormat>(a[2]), Truth(a[3]));
       a[0] = std::move(text);
       return shown;
     }},
    KORVANE_CALL(MailMessage, GetAttachments),
    KORVANE_CALL(MailMessage, NM_NewAttachment),
    {"MailMessage", Kind::kCall, "NM_Save",
     [](Object& o, Arguments a) -> Any {
       return As<MailMessage>(o).NM_Save(Database(a[0]), Int(a[1]));
     }},

    {"MailMessages", Kind::kCall, "Add",
     [](Object& o, Arguments a) -> Any {
       auto message = Instance<MailMessage>(a[0], "a MailMessage");
       if (!message) throw ArgumentError("Add: oMessage must be a MailMessage");
       As<MailMessages>(o).Add(std::move(message), Int(a[1]));
       return {};
     }},
    KORVANE_COLLECTION(MailMessages),

    KORVANE_ACCOUNT(WebInterface),
    {"WebInterface", Kind::kLet, "ConnDataBase",
     [](Object& o, Arguments a) -> Any {
       As<WebInterface>(o).ConnDataBase(Database(a[0]));
       return {};
     }},
    {"WebInterface", Kind::kCall, "Init",
     [](Object& o, Arguments a) -> Any {
       return As<WebInterface>(o).Init(Instance<BossObject>(a[0], "a BossObject"), Int(a[1]));
     }},
    KORVANE_CALL(WebInterface, Finish),
    {"WebInterface", Kind::kCall, "VerifyAccount",
     [](Object& o, Arguments a) -> Any { return As<WebInterface>(o).VerifyAccount(Int(a[0])); }},
    {"WebInterface", Kind::kCall, "GetListMessagesInBox",
     [](Object& o, Arguments a) -> Any {
       return As<WebInterface>(o).GetListMessagesInBox(
           Int(a[0]), Int(a[1]), Truth(a[2]), Truth(a[3]), Text(a[4]), Truth(a[5]),
           Enum<EMailOrder>(a[6]), Enum<EMailOrderDirection>(a[7]), Int(a[8]), &a[9], &a[10],
           Enum<EMailOrderDirection>(a[11]));
     }},
    {"WebInterface", Kind::kCall, "GetMessage",
     [](Object& o, Arguments a) -> Any {
       return As<WebInterface>(o).GetMessage(Int(a[0]), Truth(a[1]), Text(a[2]));
     }},
    {"WebInterface", Kind::kCall, "DeleteMessage",
     [](Object& o, Arguments a) -> Any {
       return As<WebInterface>(o).DeleteMessage(a[0], Enum<EDelType>(a[1]));
     }},
    {"WebInterface", Kind::kCall, "NewMessage",
     [](Object& o, Arguments a) -> Any { return As<WebInterface>(o).NewMessage(Text(a[0])); }},
    KORVANE_CALL(WebInterface, BackgroundClean),

    KORVANE_GET(MailAttachment, Id),
    KORVANE_GET(MailAttachment, Name),
    KORVANE_GET(MailAttachment, NameOnServer),
    KORVANE_LET_TEXT(MailAttachment, NM_FileName),
    KORVANE_ERRORS(MailAttachment),
    KORVANE_COLLECTION(MailAttachments),

    KORVANE_ERRORS(MultipartEntity),
    {"MultipartEntity", Kind::kCall, "GetMajorText",
     [](Object& o, Arguments a) -> Any {
       std::string text = a[0].ToText();
       const bool found = As<MultipartEntity>(o).GetMajorText(
           text, Enum<ETextAlternativeType>(a[1]), Enum<ETextFormat>(a[2]), Truth(a[3]), Text(a[4]),
           Truth(a[5]));
       a[0] = std::move(text);
       return found;
     }},
    KORVANE_ERRORS(UUAtcmt),

    KORVANE_GET(BossObject, KorvaneId),
    KORVANE_GET(BossObject, PathAtcmts),
    KORVANE_GET(BossObject, URLAtcmts),
    KORVANE_GET(BossObject, PathMessages),
    KORVANE_GET(BossObject, PathAtcmtsInvio),
    KORVANE_GET(BossObject, PathLog),
    KORVANE_GET(BossObject, PathBackgrDwnloader),
    KORVANE_GET(BossObject, DbConnectionString),
    KORVANE_GET(BossObject, DebugMode),
    KORVANE_GET(BossObject, ServerTimeout),
    KORVANE_GET(BossObject, IsEnglishDate),
    KORVANE_ERRORS(BossObject),
    {"BossObject", Kind::kCall, "Init",
     [](Object& o, Arguments a) -> Any { return As<BossObject>(o).Init(Int(a[0])); }},
    {"BossObject", Kind::kCall, "Init2",
     [](Object& o, Arguments a) -> Any { return As<BossObject>(o).Init2(Database(a[0])); }},

    KORVANE_ACCOUNT(BasicInterface),
    {"BasicInterface", Kind::kCall, "Init",
     [](Object& o, Arguments a) -> Any { return As<BasicInterface>(o).Init(Truth(a[0])); }},
    KORVANE_CALL(BasicInterface, Finish),
    {"BasicInterface", Kind::kCall, "GetListMessagesInBox",
     [](Object& o, Arguments a) -> Any {
       return As<BasicInterface>(o).GetListMessagesInBox(Int(a[0]), Int(a[1]), &a[2], &a[3]);
     }},
    {"BasicInterface", Kind::kCall, "GetMessage",
     [](Object& o, Arguments a) -> Any {
       return As<BasicInterface>(o).GetMessage(Int(a[0]), Text(a[1]));
     }},
    {"BasicInterface", Kind::kCall, "GetMessageUIDL",
     [](Object& o, Arguments a) -> Any {
       return As<BasicInterface>(o).GetMessageUIDL(Int(a[0]), Text(a[1]), Text(a[2]));
     }},
    {"BasicInterface", Kind::kCall, "DeleteMessage",
     [](Object& o, Arguments a) -> Any { return As<BasicInterface>(o).DeleteMessage(Int(a[0])); }},
    {"BasicInterface", Kind::kCall, "DeleteMessageUIDL",
     [](Object& o, Arguments a) -> Any {
       return As<BasicInterface>(o).DeleteMessageUIDL(Int(a[0]), Text(a[1]));
     }},

    // The database connection
    {"Connection", Kind::kCall, "Execute",
     [](Object& o, Arguments a) -> Any { return As<Connection>(o).Execute(Text(a[0])); }},
    {"Recordset", Kind::kGet, "EOF",
     [](Object& o, Arguments) -> Any { return As<Recordset>(o).Eof(); }},
    {"Recordset", Kind::kCall, "MoveNext",
     [](Object& o, Arguments) -> Any {
       As<Recordset>(o).MoveNext();
       return {};
     }},
    {"Recordset", Kind::kGet, "Fields",
     [](Object& o, Arguments a) -> Any { return As<Recordset>(o).Field(Text(a[0])); }},
};

constexpr model::Parameter kStatement[] = {{"sql", model::Type::kText, "", {}}};
constexpr model::Parameter kColumn[] = {{"name", model::Type::kText, "", {}}};
constexpr model::Member kConnectionMembers[] = {
    {Kind::kCall, "Execute", kStatement, model::Type::kObject, "Recordset"},
};
constexpr model::Member kRecordsetMembers[] = {
    {Kind::kGet, "EOF", {}, model::Type::kBool, ""},
    {Kind::kCall, "MoveNext", {}, model::Type::kNothing, ""},
    {Kind::kGet, "Fields", kColumn, model::Type::kAny, ""},
};
constexpr model::Class kDatabaseClasses[] = {
    {"Connection", false, "an open database connection", kConnectionMembers},
    {"Recordset", false, "the rows of a statement", kRecordsetMembers},
};

/// Members are found by the address of their line in the model.
std::unordered_map<const model::Member*, Invoke> BindingsByMember() {
  std::unordered_map<const model::Member*, Invoke> found;
  for (const Binding& binding : kBindings) {
    const model::Class* of = FindClass(binding.type);
    const model::Member* member = of ? FindMember(*of, binding.member, binding.kind) : nullptr;
    if (member) found.emplace(member, binding.invoke);
  }
  return found;
}

}  // namespace

Invoke FindBinding(const model::Class&, const model::Member& member) {
  static const auto bindings = BindingsByMember();
  const auto found = bindings.find(&member);
  return found == bindings.end() ? nullptr : found->second;
}

std::shared_ptr<Object> Create(std::string_view class_name) {
  if (class_name == "WebInterface") return std::make_shared<WebInterface>();
  if (class_name == "BossObject") return std::make_shared<BossObject>();
  if (class_name == "BasicInterface") return std::make_shared<BasicInterface>();
  return nullptr;
}

std::span<const model::Class> DatabaseClasses() { return kDatabaseClasses; }
const model::Class& ConnectionClass() { return kDatabaseClasses[0]; }

const model::Class* FindClass(std::string_view name) {
  if (const model::Class* published = model::FindClass(name)) return published;
  for (const model::Class& one : kDatabaseClasses) {
    if (one.name == name) return &one;
  }
  return nullptr;
}

}  // namespace korvane::automation
