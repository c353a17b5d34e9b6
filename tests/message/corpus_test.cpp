// Our own samples and the messages that Python tests its mail parser with.
#include <gtest/gtest.h>

#include "support/mail_corpus.h"

namespace korvane {
namespace {

const std::string kSamples = std::string(KORVANE_SOURCE_DIR) + "/tests/mail/";

TEST(MailCorpus, RealMessagesReadAsPythonReadsThem) { test::RunCorpus(kSamples + "real", 0.9); }

TEST(MailCorpus, QuirkyMessagesAreKeptWhole) { test::RunCorpus(kSamples + "quirky", 0.5); }

TEST(MailCorpus, MalformedMessagesAreKeptWhole) { test::RunCorpus(kSamples + "malformed", 0.1); }

TEST(MailCorpus, PythonsOwnSamplesReadAsPythonReadsThem) {
  test::RunCorpus("/usr/lib/python3.11/test/test_email/data", 0.5);
}

}  // namespace
}  // namespace korvane
