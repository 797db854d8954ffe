"""A connection that is lost while a snapshot is taken: it is taken, and nobody hears of it."""
from ansible.errors import AnsibleConnectionFailure
from ansible.plugins.connection import local

DOCUMENTATION = """
name: lost
short_description: loses the answer of a snapshot
description:
  - Like C(local) in everything else.
options: {}
"""


class Connection(local.Connection):
    """The local connection, but for the answer of a snapshot."""

    transport = "lost"

    def exec_command(self, cmd, in_data=None, sudoable=True):
        found = super().exec_command(cmd, in_data, sudoable)
        if " snapshot " in cmd:
            raise AnsibleConnectionFailure("the connection was reset")
        return found
