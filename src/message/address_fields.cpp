#include "message/address_fields.h"

#include <algorithm>

#include "mime/header_fields.h"
#include "mime/quote_pairs.h"

namespace korvane {

namespace {

constexpr auto kNone = std::string_view::npos;

// Names stand between double quotes in the normalised form, so they hold none.
std::string NameOf(std::string_view quoted) {
  std::string name(Unquote(quoted));
  std::replace(name.begin(), name.end(), '"', '\'');
  return name;
}

size_t FindOutsideQuotes(std::string_view text, char wanted) {
  QuotePairs quotes(text);
  size_t at = text.find(wanted);
  while (at != kNone && quotes.Inside(at)) at = text.find(wanted, at + 1);
  return at;
}

void AppendItem(std::string& list, std::string_view item) {
  if (!list.empty()) list += ", ";
  list += item;
}

void AppendMailbox(NamesAndAddresses& lists, std::string_view item) {
  NamesAndAddresses mailbox = SplitMailbox(item);
  if (mailbox.addresses.empty()) return;
  AppendItem(lists.addresses, mailbox.addresses);
  if (mailbox.names.empty()) {
    mailbox.names = mailbox.addresses;
    std::replace(mailbox.names.begin(), mailbox.names.end(), '"', '\'');
  }
  AppendItem(lists.names, mailbox.names);
}

// A group's name stands before its members' names; a group without members adds nothing.
void AppendGroup(NamesAndAddresses& lists, std::string_view name, std::string_view members) {
  const NamesAndAddresses group = SplitAddressList(members);
  if (group.addresses.empty()) return;
  std::string names = NameOf(name);
  names += ": ";
  names += group.names;
  AppendItem(lists.names, names);
  AppendItem(lists.addresses, group.addresses);
}

// Cuts a list into mailboxes and groups. A ":" opens a group only when a ";" can still close it,
// and neither counts within quotes, nor the ":" within a route <@relay:ann@x> or a literal
// [IPv6:::1].
class GroupedList {
 public:
  explicit GroupedList(std::string_view value) : value_(value), quotes_(value) {
    QuotePairs pairs(value);
    for (size_t at = value.find(';'); at != kNone; at = value.find(';', at + 1)) {
      if (!pairs.Inside(at)) last_semicolon_ = at;
    }
  }

  NamesAndAddresses Split() {
    for (size_t at = 0; at < value_.size(); ++at) {
      const char c = value_[at];
      if (!IsMark(c) || quotes_.Inside(at)) continue;
      if (c == ';') {
        EndItem(at);
      } else if (c == ',' && colon_ == kNone) {
        EndItem(at);
      } else if (c == '<' || c == '[') {
        closing_ = closing_ == 0 ? (c == '<' ? '>' : ']') : closing_;
      } else if (c == closing_) {
        closing_ = 0;
      } else if (c == ':' && closing_ == 0 && colon_ == kNone && OpensGroup(at)) {
        colon_ = at;
      }
    }
    EndItem(value_.size());
    return std::move(lists_);
  }

 private:
  static bool IsMark(char c) {
    return c == ',' || c == ';' || c == ':' || c == '<' || c == '>' || c == '[' || c == ']';
  }

  bool OpensGroup(size_t at) const { return last_semicolon_ != kNone && at < last_semicolon_; }

  void EndItem(size_t end) {
    if (colon_ != kNone) {
      AppendGroup(lists_, value_.substr(begin_, colon_ - begin_),
                  value_.substr(colon_ + 1, end - colon_ - 1));
    } else {
      AppendMailbox(lists_, value_.substr(begin_, end - begin_));
    }
    begin_ = end + 1;
    colon_ = kNone;
    closing_ = 0;
  }

  std::string_view value_;
  QuotePairs quotes_;
  size_t last_semicolon_ = kNone;
  size_t begin_ = 0;
  size_t colon_ = kNone;  ///< of the group that is open
  char closing_ = 0;      ///< the bracket that is open
  NamesAndAddresses lists_;
};

std::string Normalised(const NamesAndAddresses& lists) {
  std::string text;
  text.reserve(lists.names.size() + lists.addresses.size() + 5);
  text += '"';
  text += lists.names;
  text += "\" <";
  text += lists.addresses;
  text += '>';
  return text;
}

}  // namespace

NamesAndAddresses SplitMailbox(std::string_view mailbox) {
  const size_t bracket = FindOutsideQuotes(mailbox, '<');
  if (bracket == kNone) return {"", std::string(TrimBlanks(mailbox))};
  return {NameOf(mailbox.substr(0, bracket)), AngleAddress(mailbox.substr(bracket))};
}

std::string AngleAddress(std::string_view text) {
  size_t begin = text.find('<');
  if (begin == kNone) return {};
  // What stands before a colon is a route of relays.
  if (const size_t colon = text.find(':', begin); colon != kNone) begin = colon;
  const size_t end = text.find('>', begin);
  return std::string(TrimBlanks(text.substr(begin + 1, end == kNone ? end : end - begin - 1)));
}

NamesAndAddresses SplitAddressList(std::string_view value) {
  NamesAndAddresses lists;
  QuotePairs quotes(value);
  size_t begin = 0;
  for (size_t at = value.find(','); at != kNone; at = value.find(',', at + 1)) {
    if (quotes.Inside(at)) continue;
    AppendMailbox(lists, value.substr(begin, at - begin));
    begin = at + 1;
  }
  AppendMailbox(lists, value.substr(begin));
  return lists;
}

NamesAndAddresses SplitAddressListWithGroups(std::string_view value) {
  return GroupedList(value).Split();
}

std::string NormaliseFrom(std::string_view value) { return Normalised(SplitAddressList(value)); }

std::string NormaliseTo(std::string_view value) {
  return Normalised(SplitAddressListWithGroups(value));
}

std::string NamesOfNormalised(std::string_view normalised) {
  if (normalised.empty()) return {};
  normalised.remove_prefix(1);
  return std::string(normalised.substr(0, normalised.find('"')));
}

std::string AddressesOfNormalised(std::string_view normalised) {
  // Names hold no quotes, but may hold a "<": the addresses stand behind the closing quote.
  constexpr size_t kFirstPlace = 3;  // behind an empty quoted name
  size_t from = normalised.find('"', 1);
  if (from == kNone || from < kFirstPlace) from = kFirstPlace;
  const size_t begin = normalised.find('<', from);
  if (begin == kNone) return {};
  normalised.remove_prefix(begin + 1);
  if (normalised.ends_with('>')) normalised.remove_suffix(1);
  return std::string(normalised);
}

}  // namespace korvane
