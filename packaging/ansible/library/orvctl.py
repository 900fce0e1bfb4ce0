# The documentation of the action plugin of the same name, which does the work:
# "ansible-doc -M packaging/ansible/library orvctl".  It is never copied to a
# device.
DOCUMENTATION = r"""
module: orvctl
short_description: Settings of a device with Larkspur
description:
  - Sets, dumps and restores the forms of a device with C(orvctl), over any
    connection with a shell.  The device needs no Python.
  - A task is checked as a whole, by the checks and scripts of the forms, and
    stored as one step, or not at all.
  - In check mode everything is checked and nothing stored.  A diff has the
    words of the pages, and never contains a secret.
options:
  forms:
    description:
      - A dictionary of forms, C(form) or C(form/sub-item), each a dictionary of
        fields.  A field that is a list is a table, each row a dictionary of
        columns, and the table gets exactly these rows.
      - Fields that are not named stay as they are.
    type: dict
  apply:
    description: A dump on the controller, to be applied.
    type: path
  dump:
    description: The file for the settings on the controller, in the format of
      C(apply); only its owner can read it.
    type: path
  secrets:
    description: Whether the dump contains secrets.
    type: bool
    default: false
  pages:
    description: The forms to dump; all by default.
    type: list
    elements: str
  restore:
    description: The number of a save (C(orvctl history)); restores the settings
      before it.
    type: int
  reset:
    description: A form whose settings are reset to those as shipped, or V(all).
    type: str
  keep:
    description: Keeps a change that would otherwise go back, through a new
      connection, which proves that the device can still be reached.
    type: bool
    default: false
  keep_host:
    description: The address of the device once it uses the change.
    type: str
  command:
    description: The command on the device.
    type: str
    default: value of the variable C(orvctl_command), else C(orvctl)
"""

EXAMPLES = r"""
- name: A time server, and two ports
  orvctl:
    forms:
      system: {ntp_server: ntp.example}
      firewall:
        rules:
          - {fr_do: allow, fr_from: wan, fr_port: 443}
          - {fr_do: allow, fr_from: wan, fr_port: 22}

- name: A secret
  orvctl:
    forms:
      wireless: {wl_passphrase: "{{ vaulted_passphrase }}"}
  no_log: true

- name: Another address, kept once the device answers there
  orvctl:
    forms:
      network: {static_ip: "yes", ip_address: 192.0.2.7/24}
    keep: true
    keep_host: 192.0.2.7
"""

RETURN = r"""
changes:
  description: The changes, made or in check mode possible, as lines per form.
  type: dict
results:
  description: The result of orvctl for each form.
  type: list
pending:
  description: A change that goes back unless it is kept, as orvctl reports it.
  type: dict
kept:
  description: Whether it was kept.
  type: bool
skipped_secrets:
  description: Secrets that the dump does not contain, and that stay unchanged.
  type: list
"""
