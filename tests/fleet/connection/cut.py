"""A connection that is lost when a snapshot has begun: it goes on without anybody that listens."""
import os
import re
import subprocess
import time

from ansible.errors import AnsibleConnectionFailure
from ansible.plugins.connection import local

DOCUMENTATION = """
name: cut
short_description: loses the host when a snapshot has begun, as the file STATE.begun tells
description:
  - Like C(local) in everything else.
options: {}
"""


class Connection(local.Connection):
    """The local connection, but for a snapshot."""

    transport = "cut"

    def exec_command(self, cmd, in_data=None, sudoable=True):
        if " snapshot " in cmd:
            subprocess.Popen(cmd, shell=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL, start_new_session=True)
            begun = re.search(r"--state (\S+)", cmd).group(1) + ".begun"
            end = time.monotonic() + 60
            while not os.path.exists(begun) and time.monotonic() < end:
                time.sleep(0.05)
            raise AnsibleConnectionFailure("the connection was reset")
        return super().exec_command(cmd, in_data, sudoable)
