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


def names_left(records):
    """The clients of this run that are left to do, who needs a person first."""
    return [record["host"] for record in records_of.order(records)
            if records_of.needs_a_person(record) and not record.get("earlier")]


class ActionModule(ActionBase):
    def run(self, tmp=None, task_vars=None):
        super().run(tmp, task_vars)
        dummy, options = self.validate_argument_spec(argument_spec={
            "records": {"type": "list", "elements": "dict"}, "hosts": {"type": "list", "elements": "str"},
            "asked": {"type": "list", "elements": "str"}, "given_up": {"type": "list", "elements": "str", "default": []},
            "folder": {"type": "str"}, "table": {"type": "bool", "default": True}},
            required_together=[("hosts", "folder")], required_one_of=[("records", "hosts")])
        moment = datetime.datetime.now().astimezone()
        given_up = [records_of.given_up(host, moment.isoformat(timespec="seconds")) for host in options["given_up"]]
        records = options["records"]
        if records is None:
            asked = options["hosts"] if options["asked"] is None else options["asked"]
            records = self._keep(options["folder"], options["hosts"], asked, given_up, moment)
        else:
            records = records + given_up
        if options["table"]:
            self._show(records, options["folder"])
        return {"changed": False, "left": names_left(records)}

    def _keep(self, folder, hosts, asked, given_up, moment):
        """Writes what is to be written; the records of all hosts, those of earlier runs marked."""
        try:
            for record in given_up:
                records_of.save(folder, record)
            records = [dict(record, earlier=record["host"] not in asked)
                       for record in (records_of.load(folder, host) for host in hosts) if record]
            self._write(folder, records, moment.strftime("%Y-%m-%d %H:%M %Z"))
        except OSError as error:
            raise AnsibleActionFail(f"The report cannot be written: {error}") from error
        return records

    def _write(self, folder, records, moment):
        records_of.write_whole(os.path.join(folder, "index.html"), page.page(records, moment))
        left = names_left(records)
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
            if names_left(records):
                lines.append(f"The rest again: --limit @{table.safe(os.path.join(folder, 'failed.txt'))}")
        display.display("\n" + "\n".join(lines) + "\n")
