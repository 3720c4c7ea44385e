# SPDX-License-Identifier: MIT
"""Sets one program's gain and holds it until standard input ends: a client of the audio service that shares no code
with it. Arguments: the program's name and the gain. Prints "set", or what the service says instead."""
import json
import select
import sys

import dbus

PATH = "/app/vesk/native/monitor_audio"
NAME = "app.vesk.native.monitor-audio"
INTERFACE = "app.vesk.native.MonitorAudio"

name, gain = sys.argv[1], float(sys.argv[2])
service = dbus.Interface(dbus.SessionBus().get_object(NAME, PATH), INTERFACE)
data, _ = service.Applications(byte_arrays=True)
program = next(entry for entry in json.loads(bytes(data)) if entry["name"] == name)
error = service.SetGain(gain, dbus.ByteArray(json.dumps(program["processes"]).encode()))
print(error or "set", flush=True)

# The list is the sign of life without which the service gives normal playback back.
while not select.select([sys.stdin], [], [], 2.0)[0]:
    service.Applications()
