// What stands in a store agrees with its files, whatever interrupted the storing.
#pragma once

#include <filesystem>

#include "engine_fixture.h"

namespace korvane::test {

/// Every record can be read, every attachment file belongs to one, and none has less than it must.
inline void CheckStore(Store& store, size_t bytes_of_files = 0) {
  std::vector<std::string> files;
  Request request(store);
  for (const auto& row : store.Rows()) {
    if (row.position == -1) continue;
    const auto message = request.engine.GetMessage(row.id, "", false);
    ASSERT_TRUE(message) << row.subject;
    EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), row.subject);
    for (int i = 1; i <= message->GetAttachments()->Count(); ++i) {
      files.push_back(message->GetAttachments()->ItemIndex(i)->NameOnServer());
    }
  }
  std::sort(files.begin(), files.end());
  auto found = store.AttachmentFiles();
  // What fills a small disk lies beside them.
  std::erase(found, "ballast");
  EXPECT_EQ(found, files);
  for (const auto& name : found) {
    EXPECT_GE(std::filesystem::file_size(store.AttachmentFolder() + "/" + name), bytes_of_files);
  }
}

}  // namespace korvane::test
