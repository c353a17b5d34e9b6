"""The check of the includes: right trees pass it, each kind of wrong include fails it."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
RIGHT = {
    "include/Tarsel_MailConversions.h": "",
    "src/frame/any.h": "#include <string>\n",
    "src/frame/driver.cpp": '#include "frame/any.h"\n#include <sqlite3.h>\n',
    "src/facade/mail_user.h": '#include "../frame/any.h"\n',
    "src/facade/web.h": '#include "../engine/engine.h"\n#include "mail_user.h"\n',
    "src/engine/engine.h": '#include "../pop3/server.h"\n#include "../maintenance/cleaner.h"\n',
    "src/pop3/server.h": '#include "../message/message.h"\n#include "../facade/mail_user.h"\n',
    "src/pop3/sockets/sockets.cpp": "#include <Tarsel_MailConversions.h>\n"
                                    '#include "Tarsel_MailConversions.h"\n#include <sys/socket.h>\n',
    "src/maintenance/cleaner.h": '#include "../message/message.h"\n',
    "src/message/message.h": '#include "../mime/entity.h"\n',
    "src/mime/entity.h": '#include "../frame/any.h"\n',
    "src/mime/conversions/base64.h": "#include <cstdint>\n",
    "src/mime/conversions/base64.cpp": '#include "mime/conversions/base64.h"\n',
}


class CheckIncludes(unittest.TestCase):
    def run_on(self, extra):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in {**RIGHT, **extra}.items():
                path = pathlib.Path(folder, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return subprocess.run([sys.executable, ROOT / "scripts/check_includes", folder],
                                  capture_output=True, text=True)

    def assert_wrong(self, file, text, line=1):
        result = self.run_on({file: text})
        self.assertEqual(result.returncode, 1, result.stdout)
        self.assertIn(f"{file}:{line}:", result.stdout)

    def test_this_repository_is_right(self):
        result = subprocess.run([sys.executable, ROOT / "scripts/check_includes"],
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stdout)

    def test_a_right_tree_passes(self):
        result = self.run_on({})
        self.assertEqual(result.returncode, 0, result.stdout)

    def test_a_tree_without_sources_fails(self):
        with tempfile.TemporaryDirectory() as folder:
            result = subprocess.run([sys.executable, ROOT / "scripts/check_includes", folder],
                                    capture_output=True, text=True)
        self.assertEqual(result.returncode, 1)

    def test_a_lower_layer_does_not_include_a_higher_one(self):
        self.assert_wrong("src/mime/date.h", '#include <string>\n#include "../message/message.h"\n', 2)
        self.assert_wrong("src/frame/files.cpp", '#include "facade/web.h"\n')
        self.assert_wrong("src/message/rows.cpp", '#include "pop3/server.h"\n')

    def test_the_client_and_the_cleaner_do_not_include_each_other(self):
        self.assert_wrong("src/pop3/replies.cpp", '#include "maintenance/cleaner.h"\n')
        self.assert_wrong("src/maintenance/sweep.cpp", '#include "pop3/server.h"\n')

    def test_the_frame_does_not_include_the_account(self):
        self.assert_wrong("src/frame/log.cpp", '#include "facade/mail_user.h"\n')

    def test_the_account_includes_the_frame_only(self):
        self.assert_wrong("src/facade/mail_user.cpp", '#include "mime/entity.h"\n')

    def test_the_companion_includes_only_its_own_folder(self):
        self.assert_wrong("src/mime/conversions/uu.cpp", '#include "frame/any.h"\n')
        self.assert_wrong("src/pop3/sockets/tls.cpp", '#include "mime/conversions/base64.h"\n')

    def test_nobody_includes_the_companions_insides(self):
        self.assert_wrong("src/mime/body.cpp", '#include "mime/conversions/base64.h"\n')

    def test_database_headers_stay_in_the_frames_sources(self):
        self.assert_wrong("src/frame/database.h", "#include <libpq-fe.h>\n")
        self.assert_wrong("src/engine/engine.cpp", "#include <sqlite3.h>\n")

    def test_socket_and_tls_headers_stay_in_the_companions_sources(self):
        self.assert_wrong("src/pop3/session.cpp", "#include <sys/socket.h>\n")
        self.assert_wrong("src/pop3/sockets/tls.h", "#include <openssl/ssl.h>\n")
        self.assert_wrong("src/frame/files.cpp", "#include <openssl/sha.h>\n")

    def test_a_header_of_the_system_stays_out_of_headers(self):
        self.assert_wrong("src/frame/files.h", "#include <unistd.h>\n")

    def test_an_include_that_is_not_there_is_told(self):
        self.assert_wrong("src/frame/files.cpp", '#include "frame/gone.h"\n')

    def test_a_new_folder_has_to_be_entered_in_the_table(self):
        self.assert_wrong("src/helpers/text.h", "#include <string>\n")


if __name__ == "__main__":
    unittest.main()
