// The pages, one function a request. Each opens the component's objects, uses them and drops them.
#pragma once

#include "visit.h"

namespace korvane::site {

// Signing in and out. The login is null.
void ShowSignIn(Visit& visit);
void SignIn(Visit& visit);
void SignOut(Visit& visit);

// A box: list, get mail, delete, undo.
void ShowBox(Visit& visit);
void StartFetch(Visit& visit);
void ShowProgress(Visit& visit);
void DeleteMessages(Visit& visit);
void UndoDelete(Visit& visit);

// A message: summary, its body for the frame, attachments.
void ShowMessage(Visit& visit);
void ShowBody(Visit& visit);
void SendFile(Visit& visit);       ///< an attachment, for the person
void SendSource(Visit& visit);     ///< the whole message as a .eml file
void SendFrameFile(Visit& visit);  ///< a picture, for the frame; the address carries a signature

// Composing into the drafts.
void ShowCompose(Visit& visit);
void SaveDraft(Visit& visit);

void ShowAccounts(Visit& visit);
void ChangeAccounts(Visit& visit);

void ShowMaintenance(Visit& visit);
void CompactNow(Visit& visit);

// Straight on the POP3 server.
void ShowPeek(Visit& visit);
void PeekMessage(Visit& visit);
void PeekDelete(Visit& visit);

}  // namespace korvane::site
