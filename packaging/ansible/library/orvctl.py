# The documentation of the action plugin of the same name, which does the work:
# "ansible-doc -M packaging/ansible/library orvctl".  It is never copied to a
# device.
DOCUMENTATION = r"""
module: orvctl
short_description: Settings of a device with Larkspur
description:
  - Sets, saves and brings back the forms of a device by C(orvctl), over any
    connection with a shell.  The device needs no Python.
  - A task is judged as a whole, by the checks and scripts of the forms, and
    stored as one step, or not at all.
  - In check mode everything is judged and nothing stored.  A diff has the
    words of the pages, and never a secret.
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
    description: Where the settings go on the controller, as C(apply) takes them;
      the file is its owner's alone.
    type: path
  secrets:
    description: Whether the dump has secrets.
    type: bool
    default: false
  pages:
    description: The forms that are dumped; all of them by default.
    type: list
    elements: str
  restore:
    description: The number of a save (C(orvctl history)); the settings become
      what they were before it.
    type: int
  reset:
    description: A form whose settings become those that the device came with,
      or V(all).
    type: str
  keep:
    description: Keeps a change that would go back, by a new connection, which
      shows that the device can still be reached.
    type: bool
    default: false
  keep_host:
    description: The address of the device once the change is in use.
    type: str
  command:
    description: The command on the device.
    type: str
    default: value of the variable C(orvctl_command), else C(orvctl)
"""

EXAMPLES = r"""
- name: The time server, and two ports
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
  description: What changed, or would, as lines of each form's page.
  type: dict
results:
  description: What orvctl says of each form.
  type: list
pending:
  description: A change that goes back, as orvctl says it.
  type: dict
kept:
  description: Whether it was kept.
  type: bool
skipped_secrets:
  description: Secrets that the dump does not have, and that stay as they are.
  type: list
"""
