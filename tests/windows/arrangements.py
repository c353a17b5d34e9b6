"""What each page needs around it, and what has to be true once it ran.

An arrangement is a generator over a Site: it yields the page's further arguments, and claims the rest
behind the yield.
"""

from windows_site import USER, Dovecot, message

import prefix

ARRANGEMENTS = {}


def page(*names):
    def remember(arrangement):
        for name in names:
            ARRANGEMENTS[name] = arrangement
        return arrangement
    return remember


def numbered(server, count, body="text of %d\r\n.dots\r\n", user="ann"):
    for n in range(1, count + 1):
        server.deliver(user, message("m%d" % n, body=body % n, minute=n))


@page("ado.vbs", "ado.vbs on postgresql", "guards.vbs", "conversions.vbs", "lifetime.vbs", "composing.vbs")
def no_server(site):
    site.add_account(5, 9, default=True)
    yield []


@page("mail_page.vbs", "mail_page.js", "month_first.vbs")
def server_with_25(site):
    with Dovecot() as server:
        numbered(server, 25)
        site.add_account(5, server.port, default=True)
        yield []


@page("listing.vbs")
def listing(site):
    yield from server_with_25(site)
    assert site.sql("SELECT COUNT(*), MIN(id_mail), MAX(id_mail) FROM mail") == [(25, 1, 25)]
    assert site.sql("SELECT Data, Error FROM ultimi_scaricamenti") == [("2002-03-05 10:25:00", 0)]
    assert "secret" not in site.log()


@page("accounts.vbs")
def accounts(site):
    with Dovecot(["ann", "bob"]) as server:
        numbered(server, 25)
        server.deliver("bob", message("for-bob", minute=40))
        site.add_account(5, server.port, default=True)
        site.add_account(6, server.port, username="bob")
        site.add_account(8, server.port, password="wrong")
        site.add_account(9, 9)
        site.add_account(10, server.port, caso=1, password="not this one")
        site.add_account(11, server.port, user=8)
        yield []
    assert "secret" not in site.log() and "wrong" not in site.log()


MIXED = ("Content-Type: multipart/mixed; boundary=b",)


def part(head, body):
    return "--b\r\n" + head + "\r\n\r\n" + body + "\r\n"


@page("opening.vbs")
def opening(site):
    pdf = "Content-Type: application/pdf; name=\"=?UTF-8?Q?r=C3=A9sum=C3=A9.pdf?=\""
    with Dovecot() as server:
        server.deliver("ann", message("plain", minute=1, body="first line\r\n.a dot\r\na < b\r\n"))
        server.deliver("ann", message(
            "=?UTF-8?B?Q2l0dMOgINCW5ryiIPCfmIA=?=", minute=2, body="Привет, città, 漢字 😀\r\n",
            sender="=?UTF-8?B?0JbQsNC90L3QsCBkJ0FyYw==?= <zhanna@example.com>",
            extra=("Content-Type: text/plain; charset=utf-8", "Content-Transfer-Encoding: 8bit")))
        server.deliver("ann", message("two files", minute=3, extra=MIXED, body=part("", "text")
                                      + part(pdf, "first") + part(pdf, "second") + "--b--\r\n"))
        server.deliver("ann", message(
            "picture", minute=4, extra=("Content-Type: multipart/related; boundary=b",),
            body=part("Content-Type: text/html", "<p><img src=\"cid:logo@x\"></p>")
            + part("Content-Type: image/gif; name=logo.gif\r\nContent-ID: <logo@x>", "GIF89a") + "--b--\r\n"))
        attached = "Content-Type: application/octet-stream; name=\"%s\""
        server.deliver("ann", message("bad name", minute=5, extra=MIXED, body=part("", "text")
                                      + part(attached % "b?c*.txt", "refused")
                                      + part(attached % "con.txt", "device") + "--b--\r\n"))
        server.deliver("ann", message("uuencoded", minute=6,
                                      body="see\r\n\r\nbegin 644 run.txt\r\n)(R$O8FEN+W-H\r\n`\r\nend\r\n"))
        server.deliver("ann", message("last", minute=7, body="kept here\r\n"))
        site.add_account(5, server.port, default=True)
        yield []
        assert len(server.held("ann")) == 6
    files = site.files("attachments")
    assert sorted(files.values()) == sorted([b"first", b"second", b"GIF89a", b"refused", b"device", b"#!/bin/sh"])
    assert site.sql("SELECT DISTINCT Letto FROM mail") == [(-1,)]


@page("deleting.vbs")
def deleting(site):
    with Dovecot() as server:
        numbered(server, 12)
        site.add_account(5, server.port, default=True)
        yield []
        held = [held.partition(b"Subject: ")[2].partition(b"\n")[0] for held in server.held("ann")]
        assert held == [b"m1", b"m8", b"m9", b"m10", b"m11", b"m12"], held
    assert site.sql("SELECT COUNT(*) FROM mail WHERE Cancellata=-1") == [(7,)]


@page("cleaning.vbs")
def cleaning(site):
    with Dovecot() as server:
        for n, size in ((1, 50_000), (2, 50_000)):
            server.deliver("ann", message("m%d" % n, minute=n, body=("x" * 70 + "\r\n") * size))
        server.deliver("ann", message("m3", minute=3, body="small\r\n"))
        site.add_account(5, server.port, default=True)
        yield []
    assert site.sql("SELECT id_mail, body_scaricato FROM mail") == [(3, 1)]


@page("basic.vbs")
def basic(site):
    with Dovecot() as server:
        numbered(server, 25)
        yield [server.port]
        assert len(server.held("ann")) == 22


@page("settings.vbs")
def settings(site):
    without = ["PathAtcmts", "PathAtcmtsInvio", "URLAtcmts", "PathMessages", "PathLog",
               "PathBackgrDownloader", "DbConnectionString", "ServerTimeout", "DebugMode"]
    wanted = [(None, (name,), {}) for name in without]
    wanted += [(None, (), {"PathLog": text}) for text in ("", "x" * 1023, "x" * 1024, "Z:\\posta\\città")]
    yield site.write_several(wanted)


def month_first(site):
    """The user's locale for as long as the page runs; nothing else may run beside it."""
    order = ('Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\Control Panel\\International]\n'
             '"sShortDate"="M/d/yyyy"\n"iDate"="0"\n')
    prefix.import_registry(order, site.folder)
    try:
        yield from server_with_25(site)
    finally:
        prefix.import_registry(prefix.REGISTRY, site.folder)


ARRANGEMENTS["month_first.vbs"] = month_first


@page("listing.vbs on postgresql")
def listing_on_postgresql(site):
    yield from server_with_25(site)
    assert site.sql("SELECT COUNT(*), MIN(id_mail), MAX(id_mail) FROM mail") == [(25, 1, 25)]
