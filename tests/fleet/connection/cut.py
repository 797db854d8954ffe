"""A connection that is lost as soon as a snapshot is begun: it goes on without anybody that listens."""
import subprocess

from ansible.errors import AnsibleConnectionFailure
from ansible.plugins.connection import local

DOCUMENTATION = """
name: cut
short_description: loses the host as soon as a snapshot is begun
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
            raise AnsibleConnectionFailure("the connection was reset")
        return super().exec_command(cmd, in_data, sudoable)
