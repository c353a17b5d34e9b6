#include "message/address_fields.h"

#include <gtest/gtest.h>

#include "mime/header_fields.h"
#include "support/hostile_input.h"

namespace korvane {

bool operator==(const NamesAndAddresses& a, const NamesAndAddresses& b) {
  return a.names == b.names && a.addresses == b.addresses;
}
void PrintTo(const NamesAndAddresses& lists, std::ostream* out) {
  *out << lists.names << " | " << lists.addresses;
}

namespace {

using test::CpuSecondsOf;
using test::kGenerousSeconds;
using test::Repeated;
using Lists = NamesAndAddresses;

TEST(Mailbox, OfNothingIsNothing) { EXPECT_EQ(SplitMailbox(""), (Lists{"", ""})); }

TEST(Mailbox, NameAndAddress) {
  EXPECT_EQ(SplitMailbox(" Ann Smith < ann@x.org > "), (Lists{"Ann Smith", "ann@x.org"}));
  EXPECT_EQ(SplitMailbox("\"Smith, Ann\" <ann@x.org>"), (Lists{"Smith, Ann", "ann@x.org"}));
}

TEST(Mailbox, ABareAddressHasNoName) {
  EXPECT_EQ(SplitMailbox("  ann@x.org "), (Lists{"", "ann@x.org"}));
}

TEST(Mailbox, AnAddressInBracketsAloneHasNoName) {
  EXPECT_EQ(SplitMailbox("<ann@x.org>"), (Lists{"", "ann@x.org"}));
}

TEST(Mailbox, ABracketBetweenQuotesBelongsToTheName) {
  EXPECT_EQ(SplitMailbox("\"a <b> c\" <ann@x.org>"), (Lists{"a <b> c", "ann@x.org"}));
  EXPECT_EQ(SplitMailbox("\"a <b> c\""), (Lists{"", "\"a <b> c\""}));
}

TEST(Mailbox, QuotesInsideANameBecomeApostrophes) {
  EXPECT_EQ(SplitMailbox("\"Ann \"X\" Smith\" <ann@x.org>"), (Lists{"Ann 'X' Smith", "ann@x.org"}));
  EXPECT_EQ(SplitMailbox("\"Ann \\\"X\\\" Smith\" <ann@x.org>"),
            (Lists{"Ann \\'X\\' Smith", "ann@x.org"}));
}

TEST(AngleAddressOf, WithoutABracketIsNothing) {
  EXPECT_EQ(AngleAddress(""), "");
  EXPECT_EQ(AngleAddress("ann@x.org"), "");
}

TEST(AngleAddressOf, IsTrimmedAndEndsAtTheBracketOrTheEnd) {
  EXPECT_EQ(AngleAddress("Ann < ann@x.org > x"), "ann@x.org");
  EXPECT_EQ(AngleAddress("Ann < ann@x.org "), "ann@x.org");
  EXPECT_EQ(AngleAddress("<>"), "");
  EXPECT_EQ(AngleAddress("<"), "");
}

TEST(AngleAddressOf, ARouteBeforeAColonIsSkipped) {
  EXPECT_EQ(AngleAddress("<@relay.org:ann@x.org>"), "ann@x.org");
}

TEST(AngleAddressOf, AColonBehindTheBracketCountsAsWell) {
  EXPECT_EQ(AngleAddress("<ann@x.org> (phone: 12)"), "12)");
}

TEST(AddressList, NamesAndAddressesAreJoined) {
  EXPECT_EQ(SplitAddressList("Ann <a@x>, Bob <b@x>"), (Lists{"Ann, Bob", "a@x, b@x"}));
}

TEST(AddressList, AQuotedNameWithACommaStaysOneItem) {
  EXPECT_EQ(SplitAddressList("\"Smith, Ann\" <a@x>, Bob <b@x>"),
            (Lists{"Smith, Ann, Bob", "a@x, b@x"}));
}

TEST(AddressList, WithoutANameTheAddressTakesItsPlace) {
  EXPECT_EQ(SplitAddressList("a@x, Bob <b@x>"), (Lists{"a@x, Bob", "a@x, b@x"}));
  EXPECT_EQ(SplitAddressList("\"a b\"@x"), (Lists{"'a b'@x", "\"a b\"@x"}));
}

TEST(AddressList, ItemsWithoutAnAddressAreSkipped) {
  EXPECT_EQ(SplitAddressList("Ann <>, , Bob <b@x>,"), (Lists{"Bob", "b@x"}));
  EXPECT_EQ(SplitAddressList(""), (Lists{"", ""}));
  EXPECT_EQ(SplitAddressList(" , "), (Lists{"", ""}));
}

TEST(AddressList, AnUnpairedQuoteHidesNoComma) {
  EXPECT_EQ(SplitAddressList("\"Ann <a@x>, Bob <b@x>"), (Lists{"Ann , Bob", "a@x, b@x"}));
}

TEST(GroupedAddressList, AGroupsNameStandsBeforeItsMembers) {
  EXPECT_EQ(SplitAddressListWithGroups("Friends: Ann <a@x>, b@x;, Carl <c@x>"),
            (Lists{"Friends: Ann, b@x, Carl", "a@x, b@x, c@x"}));
}

TEST(GroupedAddressList, ACommaInsideAGroupDoesNotCutIt) {
  EXPECT_EQ(SplitAddressListWithGroups("z@x, Friends: a@x, b@x; , c@x"),
            (Lists{"z@x, Friends: a@x, b@x, c@x", "z@x, a@x, b@x, c@x"}));
}

TEST(GroupedAddressList, AnEmptyGroupAddsNothing) {
  EXPECT_EQ(SplitAddressListWithGroups("undisclosed-recipients:;"), (Lists{"", ""}));
  EXPECT_EQ(SplitAddressListWithGroups("a@x, Nobody: ;, b@x"), (Lists{"a@x, b@x", "a@x, b@x"}));
}

TEST(GroupedAddressList, AGroupWithoutANameKeepsItsColon) {
  EXPECT_EQ(SplitAddressListWithGroups(": a@x;"), (Lists{": a@x", "a@x"}));
}

TEST(GroupedAddressList, AQuotedGroupNameIsUnquoted) {
  EXPECT_EQ(SplitAddressListWithGroups("\"Our: \"Friends\"\": a@x;"),
            (Lists{"Our: 'Friends': a@x", "a@x"}));
}

TEST(GroupedAddressList, ASemicolonWithoutAGroupSeparates) {
  EXPECT_EQ(SplitAddressListWithGroups("Ann <a@x>; Bob <b@x>;c@x"),
            (Lists{"Ann, Bob, c@x", "a@x, b@x, c@x"}));
}

TEST(GroupedAddressList, BehindAGroupNoCommaIsNeeded) {
  EXPECT_EQ(SplitAddressListWithGroups("A: a@x; B: b@x; Carl <c@x>"),
            (Lists{"A: a@x, B: b@x, Carl", "a@x, b@x, c@x"}));
}

TEST(GroupedAddressList, AColonWithoutASemicolonOpensNoGroup) {
  EXPECT_EQ(SplitAddressListWithGroups("mailto:a@x, b@x"),
            (Lists{"mailto:a@x, b@x", "mailto:a@x, b@x"}));
}

TEST(GroupedAddressList, AColonInARouteOrALiteralOpensNoGroup) {
  EXPECT_EQ(SplitAddressListWithGroups("Ann <@r:a@x>, b@[IPv6:1]; c@x"),
            (Lists{"Ann, b@[IPv6:1], c@x", "a@x, b@[IPv6:1], c@x"}));
}

TEST(GroupedAddressList, MarksBetweenQuotesDoNotCount) {
  EXPECT_EQ(SplitAddressListWithGroups("\"a;b:c,d\" <a@x>; \"e\" <e@x>"),
            (Lists{"a;b:c,d, e", "a@x, e@x"}));
}

TEST(GroupedAddressList, WithoutGroupsItIsTheSimpleList) {
  for (const char* list : {"Ann <a@x>, Bob <b@x>", "a@x", "", "\"Smith, Ann\" <a@x>, b@x", ",,",
                           "Ann <>, Bob <b@x>", "\"", "\"a"}) {
    EXPECT_EQ(SplitAddressListWithGroups(list), SplitAddressList(list)) << list;
  }
}

TEST(Normalised, NamesAndAddressesStandInTwoLists) {
  EXPECT_EQ(NormaliseTo("Ann <a@x>, Bob <b@x>"), "\"Ann, Bob\" <a@x, b@x>");
  EXPECT_EQ(NormaliseFrom("Ann <a@x>"), "\"Ann\" <a@x>");
}

TEST(Normalised, GroupsCountInTheRecipientsOnly) {
  EXPECT_EQ(NormaliseTo("F: a@x;"), "\"F: a@x\" <a@x>");
  EXPECT_EQ(NormaliseFrom("F: a@x;"), "\"F: a@x;\" <F: a@x;>");
}

TEST(Normalised, ABareAddressIsNameAndAddress) {
  const std::string from = NormaliseFrom("ann@x.org");
  EXPECT_EQ(from, "\"ann@x.org\" <ann@x.org>");
  EXPECT_EQ(NamesOfNormalised(from), "ann@x.org");
  EXPECT_EQ(AddressesOfNormalised(from), "ann@x.org");
}

TEST(Normalised, WithoutAUsableAddressBothAreEmpty) {
  for (const char* value : {"", "Ann <>", " , "}) {
    const std::string from = NormaliseFrom(value);
    EXPECT_EQ(from, "\"\" <>") << value;
    EXPECT_EQ(NamesOfNormalised(from), "") << value;
    EXPECT_EQ(AddressesOfNormalised(from), "") << value;
  }
}

TEST(Normalised, CanBeTakenApartAgainWhateverTheNameHolds) {
  for (const char* value : {"\"Ann \"X\" Smith\" <a@x>", "\"a <b@x> c\" <a@x>", "\"<\" <a@x>",
                            "\">\" <a@x>", "\"a;b:c\" <a@x>", "'' <a@x>", "\"\"\"\" <a@x>"}) {
    const NamesAndAddresses lists = SplitAddressList(value);
    const std::string from = NormaliseFrom(value);
    EXPECT_EQ(NamesOfNormalised(from), lists.names) << value;
    EXPECT_EQ(AddressesOfNormalised(from), lists.addresses) << value;
    EXPECT_EQ(lists.addresses, "a@x") << value;
  }
}

TEST(Normalised, AnEncodedNameWithACommaIsOnePerson) {
  const std::string to =
      NormaliseTo(DecodeEncodedWords("=?utf-8?Q?Rossi=2C_Mario?= <m@x>, Bob <b@x>", true));
  EXPECT_EQ(NamesOfNormalised(to), "Rossi, Mario, Bob");
  EXPECT_EQ(AddressesOfNormalised(to), "m@x, b@x");
}

TEST(Normalised, AFormWithoutItsQuoteGivesAllOfIt) {
  EXPECT_EQ(NamesOfNormalised("\"Ann"), "Ann");
  EXPECT_EQ(NamesOfNormalised(""), "");
  EXPECT_EQ(NamesOfNormalised("\""), "");
}

TEST(Normalised, AFormWithoutItsBracketsGivesWhatIsThere) {
  EXPECT_EQ(AddressesOfNormalised("\"Ann\" <a@x"), "a@x");
  EXPECT_EQ(AddressesOfNormalised("\"Ann\" a@x"), "");
  EXPECT_EQ(AddressesOfNormalised("\"Ann <a@x>"), "a@x");
  EXPECT_EQ(AddressesOfNormalised(""), "");
  EXPECT_EQ(AddressesOfNormalised("<a>"), "");
}

TEST(Normalised, HostileFieldsTakeLinearTime) {
  for (const char* piece : {"\"", ",", ";", ":", "<", ">", "\",\"", "\";\"<", "a:;", "a@x,",
                            "[:", "\"<\"", "a:b,", "\"a\"<b>;"}) {
    const std::string value = Repeated(piece, 2 << 20);
    EXPECT_LT(CpuSecondsOf([&] {
                const std::string to = NormaliseTo(value);
                NamesOfNormalised(to);
                AddressesOfNormalised(to);
                NormaliseFrom(value + ";");
                SplitMailbox(value);
              }),
              kGenerousSeconds)
        << piece;
  }
}

}  // namespace
}  // namespace korvane
