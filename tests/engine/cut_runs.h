// Runs that break off at a chosen place and are resumed: afterwards every message of the server is
// stored once.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <random>
#include <thread>

#include "engine_fixture.h"
#include "frame/files.h"

namespace korvane::test {

/// Messages of the awkward kinds among plain ones.
inline std::vector<std::string> AwkwardMailbox(int count) {
  std::vector<std::string> messages;
  for (int i = 1; i <= count; ++i) {
    const std::string n = std::to_string(i);
    const std::string subject = "Subject: mail " + n + "\n";
    switch (i % 9) {
      case 1:  // apostrophes in both texts
        messages.push_back("Received: from o'hara.example by b.example; Thu, 5 Mar 2020 10:00:" +
                           std::to_string(10 + i % 40) + " +0000\nMessage-ID: <it's'" + n +
                           "@a.example>\n" + subject + "\nl'ora " + n + "\n");
        break;
      case 2:  // an identifier longer than its column
        messages.push_back("Received: from a by b; Thu, 5 Mar 2020 11:00:00 +0000\nMessage-ID: <" +
                           std::string(300, 'x') + n + "@a.example>\n" + subject + "\nlong " + n +
                           "\n");
        break;
      case 3:  // no "received" line
        messages.push_back("Message-ID: <" + n +
                           "@a.example>\nDate: Thu, 5 Mar 2020 12:00:00 "
                           "+0000\n" +
                           subject + "\nlocal " + n + "\n");
        break;
      case 4:  // neither text
        messages.push_back("From: ann@a.example\nDate: Thu, 5 Mar 2020 12:00:00 +0000\n" + subject +
                           "\nnameless " + n + "\n");
        break;
      case 5:  // a date that cannot be read
        messages.push_back("Received: from a by b id " + n + "; once upon a time\n" + subject +
                           "\nundated " + n + "\n");
        break;
      case 6:  // a long identifier with apostrophes at the cut
        messages.push_back("Received: from a by b; Thu, 5 Mar 2020 10:30:00 +0000\nMessage-ID: <" +
                           std::string(250, '\'') + n + "@a.example>\n" + subject + "\ncut " + n +
                           "\n");
        break;
      case 7:  // parts and a file
        messages.push_back(Mail(i, 36'000,
                                "MIME-Version: 1.0\nContent-Type: multipart/mixed; "
                                "boundary=\"b\"\n",
                                "--b\nContent-Type: text/plain\n\nhello\n--b\nContent-Type: "
                                "application/octet-stream; name=\"f.bin\"\n"
                                "Content-Transfer-Encoding: base64\n\nAAECAwQ=\n--b--\n"));
        break;
      default:  // equal times
        messages.push_back(Mail(i, 36'000));
    }
  }
  return messages;
}

struct CutRun {
  bool whole;
  bool declared;
  bool delete_on_server = false;
};

/// A mailbox of awkward messages on a server, downloaded with breaks.
class CutTest : public ServerTest {
 protected:
  using ServerTest::ServerTest;

  void Fill(int count) {
    for (const auto& message : AwkwardMailbox(count)) dovecot.Deliver("bob", message);
    count_ = count;
  }

  void RunOnce(const CutRun& run) { RunOnce(run, store.Connect()); }
  void RunOnce(const CutRun& run, std::shared_ptr<Connection> connection) {
    Request request(store, std::move(connection));
    // Most of what waits to be stored waits in its file.
    MailServer::Limits limits;
    limits.in_memory = 1'000;
    request.server->SetLimits(limits);
    MailEngine::SyncRequest sync;
    sync.header_only = !run.whole;
    sync.first_download = run.declared;
    sync.delete_on_server = run.delete_on_server;
    request.Sync(sync);
    last_error_ = request.Error();
  }

  /// Resumes until a run comes to its end, then once more.
  void Resume(const CutRun& run) {
    proxy->Clear();
    RunOnce(run);
    ASSERT_EQ(last_error_, 0);
    RunOnce(run);
    ASSERT_EQ(last_error_, 0);
  }

  /// Nothing lost, nothing twice, every record readable, no file too many.
  void Check(const CutRun& run) {
    ASSERT_EQ(Stored(), Expected(1, count_));
    Request request(store);
    std::vector<std::string> files;
    for (const auto& row : store.Rows()) {
      if (!run.whole) {
        ASSERT_EQ(row.position, -1);
        continue;
      }
      const auto message = request.engine.GetMessage(row.id, "", false);
      ASSERT_TRUE(message) << row.subject << ": " << request.Error();
      ASSERT_EQ(message->Subject(ETextFormat::TextFormat_Normal), row.subject);
      const auto attachments = message->GetAttachments();
      for (int i = 1; i <= attachments->Count(); ++i) {
        files.push_back(attachments->ItemIndex(i)->NameOnServer());
      }
    }
    std::sort(files.begin(), files.end());
    // A file that was being written when its process died stays behind until it is swept.
    auto there = store.AttachmentFiles();
    std::erase_if(there, IsTemporaryName);
    ASSERT_EQ(there, files);
    if (run.delete_on_server) {
      ASSERT_EQ(dovecot.Count("bob"), 0);
    }
  }

  /// A run in a process of its own, killed when it sends a line that starts with `verb`.
  void KillClientAt(const CutRun& run, const std::string& verb) {
    std::atomic<pid_t> child = 0;
    proxy->OnCommand([&](const std::string& line) {
      if (line.compare(0, verb.size(), verb) != 0) return;
      while (child == 0) std::this_thread::yield();
      ::kill(child, SIGKILL);
    });
    const pid_t pid = ::fork();
    if (pid == 0) {
      RunOnce(run);
      ::_exit(0);
    }
    child = pid;
    int status = 0;
    ::waitpid(pid, &status, 0);
    proxy->OnCommand(nullptr);
  }

  /// The same, killed after a while.
  void KillClientAfter(const CutRun& run, std::chrono::microseconds while_running) {
    const pid_t pid = ::fork();
    if (pid == 0) {
      RunOnce(run);
      ::_exit(0);
    }
    std::this_thread::sleep_for(while_running);
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
  }

  /// A new store over the same mailbox.
  void Renew() {
    for (const char* table : {"mail", "ultimi_scaricamenti", "messaggi_eliminati", "Pulizia"}) {
      store.db().Execute(std::string("DELETE FROM ") + table + " WHERE id_utente=7");
    }
    std::filesystem::remove(store.MessageFile());
    for (const auto& name : store.AttachmentFiles()) {
      std::filesystem::remove(store.AttachmentFolder() + "/" + name);
    }
    proxy->Clear();
    proxy->Forget();
  }

  /// The bytes that the server sends in an undisturbed run.
  int64_t BytesOf(const CutRun& run) {
    Renew();
    RunOnce(run);
    EXPECT_EQ(last_error_, 0);
    const int64_t bytes = proxy->BytesFromServer();
    Renew();
    return bytes;
  }

  int count_ = 0;
  int32_t last_error_ = 0;
};

}  // namespace korvane::test
