"""Options that every task of varnelctl has."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment:
    DOCUMENTATION = r"""
options:
  program:
    description:
      - The varnelctl of the host. Unless given the variable C(varnel_program), else C(varnelctl) of the C(PATH), on Windows
        C(C:\Program Files\varnel\bin\varnelctl.exe).
    type: str
  arguments:
    description:
      - Arguments before the command, such as C(--host FILE) of a simulated host. Unless given the variable
        C(varnel_arguments).
    type: list
    elements: str
  timeout:
    description:
      - Seconds after which varnelctl is ended on the host. 600 unless given, of C(snapshot) its deadline and 90 more. The
        control node waits 30 seconds longer.
    type: int
  save:
    description:
      - A file of the control node that gets varnelctl's whole document.
    type: path
  whole:
    description:
      - Have the whole document in the result, long lists included.
    type: bool
    default: false
notes:
  - Runs on the control node; a Windows host needs the collection C(ansible.windows) there.
  - A failure's C(msg) has varnelctl's verdict and remedy. C(cause) is C(refused) or C(failed) by varnelctl's own verdict,
    C(hung) past a deadline or timeout, C(killed), C(missing) without varnelctl, C(broken) where its document cannot be read,
    or C(mistake) in the task. A host that does not answer is unreachable.
"""
    PROTECTION_SET = r"""
options:
  protection_set:
    description:
      - What is protected, as in the inventory's C(varnel_protection_set) (C(schema/protection-set.schema.json)). C(group)
        and C(mode) may be left out.
    type: dict
"""
