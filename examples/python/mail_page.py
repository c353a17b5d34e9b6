"""A mail page in Flask: lists a user's inbox and opens messages.

    KORVANE_INSTALLATION=1 flask --app mail_page run
"""

import os

import korvane
from flask import Flask, abort, render_template_string, request

app = Flask(__name__)

LIST = """<!doctype html><html lang="en"><meta charset="utf-8"><title>Inbox</title>
<meta name="viewport" content="width=device-width">
<style>body{font:1rem sans-serif;max-width:60rem;margin:auto;padding:1rem}
td{padding:.3rem .6rem;border-bottom:1px solid #8884}.new{font-weight:bold}</style>
<h1>Inbox</h1><p>{{ mails }} messages, page {{ number }} of {{ pages }}
{% if fault %}<strong>The mail server could not be read (error {{ fault }}).</strong>{% endif %}</p>
<table>{% for m in page %}<tr{% if not m.Letto %} class="new"{% endif %}>
<td>{{ m.ReceivedDate }}<td>{{ m.FromName }}<td><a href="/message/{{ m.Id }}">{{ m.Subject(0) }}</a>
{% endfor %}</table>
<p>{% if number > 1 %}<a href="/?page={{ number - 1 }}">newer</a>{% endif %}
{% if number < pages %}<a href="/?page={{ number + 1 }}">older</a>{% endif %}
<a href="/?fetch=1">get mail</a></p>"""

MESSAGE = """<!doctype html><html lang="en"><meta charset="utf-8"><title>{{ m.Subject(0) }}</title>
<h1>{{ m.Subject(0) }}</h1><p>{{ m.FromName }}, {{ m.ReceivedDate }}</p><pre>{{ text }}</pre>
<ul>{% for a in m.GetAttachments() or [] %}<li>{{ a.Name }}</li>{% endfor %}</ul>
<p><a href="/">back</a></p>"""


def user():
    """The objects of one request; nothing is kept between requests."""
    boss = korvane.create("BossObject")
    if not boss.Init(int(os.environ.get("KORVANE_INSTALLATION", "1"))):
        abort(500, f"settings: error {boss.GetLastError}")
    web = korvane.create("WebInterface")
    web.ConnDataBase = korvane.connect(boss.DbConnectionString)
    web.UserId = int(os.environ.get("KORVANE_USER", "1"))  # a real site asks who is there
    if not web.Init(boss):
        abort(500, f"account: error {web.GetLastError}")
    return web


@app.get("/")
def inbox():
    web, pages, mails = user(), korvane.Ref(0), korvane.Ref(0)
    number = request.args.get("page", 1, type=int)
    server = -10 if request.args.get("fetch") else -1
    page = web.GetListMessagesInBox(1, server, lPageNum=number, lTotPages=pages, lTotMails=mails)
    return render_template_string(LIST, page=page, number=number, pages=pages.value,
                                  mails=mails.value, fault=web.GetLastError)


@app.get("/message/<int:message_id>")
def message(message_id):
    web, text = user(), korvane.Ref("")
    opened = web.GetMessage(message_id)
    if opened is None:
        abort(404, f"error {web.GetLastError}")
    opened.MessageBody(text, korvane.ETextAlternativeType.AlterType_Text,
                       korvane.ETextFormat.TextFormat_Normal)
    return render_template_string(MESSAGE, m=opened, text=text.value)
