"""Korvane: a web mail site's back end, from Python.

    import korvane
    boss = korvane.create("BossObject")
    boss.Init(1)
    web = korvane.create("WebInterface")
    web.ConnDataBase = korvane.connect(boss.DbConnectionString)
    web.UserId = 7
    web.Init(boss)
    pages, mails = korvane.Ref(0), korvane.Ref(0)
    page = web.GetListMessagesInBox(1, -1, lPageNum=1, lTotPages=pages, lTotMails=mails)
    for message in page:
        print(message.FromName, message.Subject(0))

Members carry their published names; arguments go by position or by name, omitted ones take the
published defaults. help(korvane.create("WebInterface")) lists them. The library is looked for at
$KORVANE_LIBRARY, beside this package, in this checkout's newest build, and by the system's loader.
"""

from ._errors import AutomationError
from ._objects import Ref, connect, create, enumerations

__all__ = ["AutomationError", "Ref", "connect", "create"]

# The enumerations, korvane.EMailOrder.ORDER_DATA and so on.
for _enumeration in enumerations():
    globals()[_enumeration.__name__] = _enumeration
    __all__.append(_enumeration.__name__)
del _enumeration
