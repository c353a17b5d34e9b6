// The POP3 client with its single commands open to a test.
#pragma once

#include "pop3/mail_server.h"

namespace korvane::test {

class ProbedServer : public MailServer {
 public:
  using MailServer::command;
  using MailServer::Data;
  using MailServer::done;
  using MailServer::MayFollow;
  using MailServer::MessageSize;
  using MailServer::RejectionNumber;
  using MailServer::Run;
  using MailServer::Uidl;

  void RunOn(Command command, int32_t number) {
    ClearError();
    SetMessageNumber(number);
    Run(command);
  }
};

}  // namespace korvane::test
