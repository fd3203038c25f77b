#!/usr/bin/python3
"""Asks the management agent over NETCONF: netconf_client.py PORT KEY COMMAND [NAME=VALUE ...], or ... get.

Shows the answer's text, or the engine's state data. See docs/management.md for the commands.
"""

import getpass
import sys
import warnings
from xml.sax.saxutils import escape

warnings.simplefilter("ignore", DeprecationWarning)  # of the client library

from ncclient import manager  # noqa: E402
from ncclient.operations.rpc import RPCError  # noqa: E402
from ncclient.xml_ import to_ele, to_xml  # noqa: E402

MODEL = "urn:tavrix:params:xml:ns:yang:tavrix-software-fwd"


def answer_of(session, command, parameters):
    if command == "get":
        reply = session.get(filter=("subtree", f'<software-fwd xmlns="{MODEL}"/>'))
        return to_xml(reply.data_ele[0], pretty_print=True)
    leaves = "".join(f"<{name}>{escape(value)}</{name}>" for name, value in parameters)
    reply = session.dispatch(to_ele(f'<{command} xmlns="{MODEL}">{leaves}</{command}>'))
    text = to_ele(reply.xml).find(f"{{{MODEL}}}text")
    return "ok" if text is None else text.text or ""


def main():
    if len(sys.argv) < 4 or any("=" not in word for word in sys.argv[4:]):
        sys.exit(__doc__)
    port, key, command = sys.argv[1:4]
    parameters = [word.split("=", 1) for word in sys.argv[4:]]
    with manager.connect(host="127.0.0.1", port=int(port), username=getpass.getuser(), key_filename=key,
                         hostkey_verify=False, allow_agent=False, look_for_keys=False) as session:
        try:
            print(answer_of(session, command, parameters))
        except RPCError as error:
            sys.exit(f"the agent refuses: {error.message}")


main()
