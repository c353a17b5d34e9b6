// Several processes that store messages of their own users at the same time, over one database and
// one folder: afterwards every message is there once, under an identifier of its own.
#pragma once

#include <set>

#include "engine/downloaded_store.h"
#include "engine_fixture.h"
#include "frame/files.h"
#include "frame/schema.h"
#include "message/message_file.h"
#include "pop3/new_messages.h"

#include <sys/wait.h>
#include <unistd.h>

namespace korvane::test {

constexpr int kFirstUser = 100;

inline std::string AttachmentOf(int user, int number) {
  return "file " + std::to_string(number) + " of user " + std::to_string(user);
}
inline std::string MailWithFile(int user, int number) {
  return Mail(
      number, number, "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=\"b\"\n",
      "--b\nContent-Type: text/plain\n\nhello\n--b\nContent-Type: application/octet-stream; "
      "name=\"f.bin\"\nContent-Disposition: attachment; filename=\"f.bin\"\n\n" +
          AttachmentOf(user, number) + "\n--b--\n");
}

/// Stores `count` messages of a user as downloads of ten.
inline bool StoreMessagesOf(Store& store, int user, int count) {
  constexpr int kDownload = 10;
  Request request(store, store.Connect(), MailUser::kNoAccount, user);
  DownloadedStore downloaded(request.account_object, *request.connection, *request.server);
  for (int first = 1; first <= count; first += kDownload) {
    NewMessages messages(request.account_object, true, "", store.MessageFolder());
    // The newest comes first, as a selection gives them.
    for (int i = std::min(first + kDownload - 1, count); i >= first; --i) {
      const std::string text = MailWithFile(user, i);
      messages.Add({i, static_cast<int32_t>(text.size()), "", text});
    }
    LastDownload state;
    if (!downloaded.Store(messages, false, state)) return false;
  }
  return true;
}

/// Each of `processes` stores the messages of its share of the users; the seconds from the start of
/// all to the end of the last.
inline double StoreFromProcesses(Store& store, int processes, int users, int each) {
  // No open database goes into a child.
  store.LetGo();
  int start[2];
  EXPECT_EQ(pipe(start), 0);
  std::vector<pid_t> children;
  for (int process = 0; process < processes; ++process) {
    const pid_t child = fork();
    if (child == 0) {
      close(start[1]);
      char nothing = 0;
      if (read(start[0], &nothing, 1) != 0) _exit(3);
      int result = 0;
      for (int user = process; user < users; user += processes) {
        try {
          if (!StoreMessagesOf(store, kFirstUser + user, each)) result = 1;
        } catch (const std::exception&) {
          result = 2;
        }
      }
      _exit(result);
    }
    children.push_back(child);
  }
  close(start[0]);
  const auto begin = std::chrono::steady_clock::now();
  close(start[1]);
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
  store.TakeUp();
  return seconds.count();
}

/// Rows, records and attachment files of all users: none missing, none twice, none too many.
inline void CheckStored(Store& store, int users, int each) {
  std::set<int32_t> identifiers;
  std::vector<std::string> files;
  for (int user = kFirstUser; user < kFirstUser + users; ++user) {
    const auto account = Request(store, store.Connect(), MailUser::kNoAccount, user).account_object;
    const auto rows = store.Rows(user);
    ASSERT_EQ(rows.size(), static_cast<size_t>(each));
    BinaryFile file;
    ASSERT_TRUE(file.Open(store.MessageFile(user), BinaryFile::Mode::kRead));
    int64_t position = 1;
    for (size_t i = 0; i < rows.size(); ++i) {
      identifiers.insert(rows[i].id);
      const auto number = static_cast<int>(i + 1);
      ASSERT_EQ(rows[i].subject, "mail " + std::to_string(number));
      // The records fill the file one behind the other.
      ASSERT_EQ(rows[i].position, position);
      ASSERT_TRUE(file.Seek(position));
      MailMessage message;
      ASSERT_TRUE(message.LoadRecord(account, rows[i].id, file));
      position = file.Position();
      ASSERT_EQ(message.Subject(ETextFormat::TextFormat_Normal), rows[i].subject);
      const auto attachments = message.GetAttachments();
      ASSERT_EQ(attachments->Count(), 1);
      files.push_back(attachments->ItemIndex(1)->NameOnServer());
      std::string bytes;
      ASSERT_TRUE(ReadWholeFile(store.AttachmentFolder() + "/" + files.back(), bytes));
      ASSERT_EQ(bytes, AttachmentOf(user, number));
    }
    EXPECT_EQ(position, file.Length() + 1);
  }
  EXPECT_EQ(identifiers.size(), static_cast<size_t>(users * each));
  EXPECT_EQ(*identifiers.rbegin(), users * each);
  EXPECT_EQ(store.CountOf("SELECT COUNT(*) FROM mail"), users * each);
  std::sort(files.begin(), files.end());
  EXPECT_EQ(store.AttachmentFiles(), files);
}

}  // namespace korvane::test
