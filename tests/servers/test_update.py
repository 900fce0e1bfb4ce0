"""An update is in effect once the web server starts: settings at the version of
their forms, the chosen language, and the maker's brand."""

import os

from served import ROOT, Server
from test_servers import make_forms, set_password

STORE = os.environ["ORV_STORE"]


def test_a_start_after_an_update_puts_it_into_effect():
    server = Server("busybox")
    share = server.root / "usr/share/larkspur"
    try:
        make_forms(server.site)
        set_password(server)
        with (server.root / "etc/default/larkspur").open("a") as default:
            default.write(f"ORV_STORE={STORE}\nORV_DEFAULTS={share}/defaults\nORV_MIGRATE={share}/migrate\n"
                          f"PATH=$PATH:{ROOT}/packaging/brand\n")
        for name in ("defaults", "migrate"):
            (share / name).mkdir()
        server.start()
        assert '<html lang="nl">' in server.ask().text
        state = server.state.stat()
        server.stop()
        (server.state / "f").write_text("#orv 2 1 -\n#table\nv=1\n")
        os.chown(server.state / "f", state.st_uid, state.st_gid)
        (share / "defaults/f").write_text("#version 2\nw=0\n")
        (share / "migrate/f").write_text("#!/bin/sh\nexec sed s/v=/w=/\n")
        (share / "migrate/f").chmod(0o755)
        (server.etc / "language").write_text("de\n")
        (share / "brand").mkdir()
        (share / "brand/brand.css").write_text(":root{--bar:#123}\n")
        server.start()
        assert '<html lang="de">' in server.ask().text
        assert "--bar:#123" in server.ask("/css/orv.css").text
        text = (server.state / "f").read_text()
        assert text.endswith("#version 2\nw=1\n") and (server.state / "f").stat().st_uid == state.st_uid
    finally:
        server.close()
