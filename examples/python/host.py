"""A host in Python: every operation once, and its lines."""

import sys

from kivo import Kivo

library = sys.argv[1] if len(sys.argv) > 1 else "libkivo.so.1"
with Kivo("com.example.python", "my-api-key", on_line=print, library=library) as kivo:
    print("Kivo", kivo.version)
    kivo.set_user("40", email="ana@example.com", name="Ana")
    kivo.wait(60)  # The calls below need the user.
    kivo.update_device_token("push-token")
    kivo.set_notification_permission(True)
    kivo.on_message_received({"notification": {"title": "Hello"}})
    kivo.wait(60)
    kivo.unset_user()
