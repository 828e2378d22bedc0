"""The controller's side of shutdown_record: the result of a client becomes its record. Nothing is sent to the client."""

from __future__ import annotations

import datetime

from ansible.errors import AnsibleActionFail
from ansible.plugins.action import ActionBase
from ansible_collections.quarn.corvane.plugins.plugin_utils import record as records_of

# In the file alone: the page takes them from there, and nothing else needs them.
ONLY_IN_FILE = ("watch", "output")


class ActionModule(ActionBase):
    def run(self, tmp=None, task_vars=None):
        super().run(tmp, task_vars)
        dummy, options = self.validate_argument_spec(argument_spec={
            "result": {"type": "dict"}, "untouched": {"type": "str"}, "folder": {"type": "str"},
            "tolerant": {"type": "bool", "default": False}}, required_one_of=[("result", "untouched")])
        host = task_vars["inventory_hostname"]
        moment = datetime.datetime.now().astimezone().isoformat(timespec="seconds")
        if options["untouched"] is not None:
            record = records_of.untouched(host, moment, options["untouched"])
        else:
            record = records_of.make(host, options["result"], moment, options["tolerant"])
        if options["folder"]:
            try:
                records_of.save(options["folder"], record)
            except OSError as error:
                raise AnsibleActionFail(f"The record of {host} cannot be written: {error}") from error
        return {"changed": False, "record": {key: value for key, value in record.items() if key not in ONLY_IN_FILE}}
