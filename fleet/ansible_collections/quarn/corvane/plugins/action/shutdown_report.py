"""The controller's side of shutdown_report: the table, the page and failed.txt, from the clients' records."""

from __future__ import annotations

import datetime
import os

from ansible.errors import AnsibleActionFail
from ansible.plugins.action import ActionBase
from ansible.utils.display import Display
from ansible_collections.quarn.corvane.plugins.plugin_utils import page, table
from ansible_collections.quarn.corvane.plugins.plugin_utils import record as records_of

display = Display()


class ActionModule(ActionBase):
    def run(self, tmp=None, task_vars=None):
        super().run(tmp, task_vars)
        dummy, options = self.validate_argument_spec(argument_spec={
            "records": {"type": "list", "elements": "dict"}, "hosts": {"type": "list", "elements": "str"},
            "folder": {"type": "str"}, "table": {"type": "bool", "default": True}},
            required_together=[("hosts", "folder")], required_one_of=[("records", "hosts")])
        records = options["records"]
        if records is None:
            records = [record for record in (records_of.load(options["folder"], host) for host in options["hosts"]) if record]
            try:
                self._write(options["folder"], records)
            except OSError as error:
                raise AnsibleActionFail(f"The report cannot be written: {error}") from error
        if options["table"]:
            self._show(records, options["folder"])
        left = [record["host"] for record in records_of.order(records) if records_of.needs_a_person(record)]
        return {"changed": False, "left": left}

    def _write(self, folder, records):
        moment = datetime.datetime.now().astimezone().strftime("%Y-%m-%d %H:%M %Z")
        records_of.write_whole(os.path.join(folder, "index.html"), page.page(records, moment))
        left = [record["host"] for record in records_of.order(records) if records_of.needs_a_person(record)]
        path = os.path.join(folder, "failed.txt")
        if left:
            records_of.write_whole(path, "".join(f"{host}\n" for host in left))
        elif os.path.lexists(path):
            # An empty one would mean every client: Ansible takes a limit of nobody for none.
            os.unlink(path)

    def _show(self, records, folder):
        lines = table.table(records)
        if folder:
            lines.append(f"Report: {table.safe(os.path.join(folder, 'index.html'))}")
            if any(records_of.needs_a_person(record) for record in records):
                lines.append(f"The rest again: --limit @{table.safe(os.path.join(folder, 'failed.txt'))}")
        display.display("\n" + "\n".join(lines) + "\n")
