"""Lists the newest page of a user's inbox, as a page of a site does: no server is asked."""

import sys

import korvane

INSTALLATION = 1
USER = 1  # a site knows who is signed in


def fail(thing):
    sys.exit(f"error {thing.GetLastError} {thing.GetLastErrorDesc}")


boss = korvane.create("BossObject")
if not boss.Init(INSTALLATION):
    fail(boss)
database = korvane.connect(boss.DbConnectionString)
boss.Init2(database)

web = korvane.create("WebInterface")
web.ConnDataBase = database
web.UserId = USER
if not web.Init(boss):
    fail(web)

pages, mails = korvane.Ref(0), korvane.Ref(0)
messages = web.GetListMessagesInBox(1, -1, lPageNum=1, lTotPages=pages, lTotMails=mails)
if web.GetLastError != 0:
    fail(web)
print(f"{mails.value} messages on {pages.value} pages")
for message in messages:
    print(f"{message.Id}  {message.FromName}  {message.Subject(0)}")
