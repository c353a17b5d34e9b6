// Runs the C program's checks, and what only threads can show.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "korvane_automation.h"

extern "C" {
const char* c_objects_are_created_used_and_released(void);
const char* c_the_guard_raises_with_number_source_and_description(void);
const char* c_mistakes_are_refused_with_their_code(void);
const char* c_an_omitted_argument_takes_its_default(void);
const char* c_a_database_that_cannot_be_opened_is_told(void);
const char* c_the_object_model_is_data(void);
}

namespace {

TEST(CInterface, ObjectsAreCreatedUsedAndReleased) {
  EXPECT_STREQ(c_objects_are_created_used_and_released(), nullptr);
}
TEST(CInterface, TheGuardRaisesWithNumberSourceAndDescription) {
  EXPECT_STREQ(c_the_guard_raises_with_number_source_and_description(), nullptr);
}
TEST(CInterface, MistakesAreRefusedWithTheirCode) {
  EXPECT_STREQ(c_mistakes_are_refused_with_their_code(), nullptr);
}
TEST(CInterface, AnOmittedArgumentTakesItsDefault) {
  EXPECT_STREQ(c_an_omitted_argument_takes_its_default(), nullptr);
}
TEST(CInterface, ADatabaseThatCannotBeOpenedIsTold) {
  EXPECT_STREQ(c_a_database_that_cannot_be_opened_is_told(), nullptr);
}
TEST(CInterface, TheObjectModelIsData) { EXPECT_STREQ(c_the_object_model_is_data(), nullptr); }

TEST(CInterface, DifferentObjectsMayBeUsedFromDifferentThreads) {
  const int64_t before = korvane_live_objects();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 500; ++i) {
        korvane_object web = 0;
        ASSERT_EQ(korvane_create("WebInterface", &web, nullptr), KORVANE_OK);
        korvane_value value{};
        value.type = KORVANE_INTEGER;
        value.integer = t * 1000 + i;
        ASSERT_EQ(korvane_let(web, "UserId", &value, nullptr), KORVANE_OK);
        ASSERT_EQ(korvane_get(web, "UserId", nullptr, 0, &value, nullptr), KORVANE_OK);
        ASSERT_EQ(value.integer, t * 1000 + i);
        ASSERT_EQ(korvane_release(web), KORVANE_OK);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(korvane_live_objects(), before);
}

}  // namespace
