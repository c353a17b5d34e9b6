"""Runs one page under the script host: run_page.py NAME.vbs|NAME.js [postgresql]

The page's arguments are the number of the installation, the connection string, the user and the
folder of the site, and then what its arrangement adds.
"""

import re
import sys

import prefix
from arrangements import ARRANGEMENTS
from postgresql_server import PostgresqlSite
from prefix import BIN, HERE, windows_path
from windows_site import USER, Site


def run_script(site, script, *arguments):
    """The status and the output of a script in the site."""
    return prefix.run(BIN / "script_host.exe", windows_path(script), *arguments)


def claims_of(script):
    """The claims that stand at the left margin of a page: those that have to be made. An error that the
    page passes over ("On Error Resume Next") would otherwise take a claim with it."""
    pattern = re.compile(r'^(?:Test\.(?:Check|Equal)|NoError|HasError|Raised)\b.*, "((?:[^"]|"")*)"\)?;?$', re.M)
    return [claim.replace('""', '"') for claim in pattern.findall(script.read_text())]


def run_page(name, on_postgresql):
    with PostgresqlSite() if on_postgresql else Site() as site:
        instance = site.write_settings()
        arranged = ARRANGEMENTS[name + " on postgresql" if on_postgresql else name](site)
        further = next(arranged)
        status, output = run_script(site, HERE / "pages" / name, instance, site.connection_string, USER,
                                    windows_path(site.folder), *further)
        print(output, end="")
        if status == 0:
            made = {line.removeprefix("ok    ") for line in output.splitlines()}
            missing = [claim for claim in claims_of(HERE / "pages" / name)
                       if not any(line.startswith(claim) for line in made)]
            assert not missing, missing
            assert next(arranged, None) is None
        else:
            arranged.close()
            print(site.log(), end="")
        return status


if __name__ == "__main__":
    sys.exit(run_page(sys.argv[1], sys.argv[2:] == ["postgresql"]))
