#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Whether compile_commands.json has an entry for each file: compile_commands.py FILE SOURCE..."""
import json
import os
import sys

with open(sys.argv[1], encoding="utf-8") as database:
    known = {os.path.realpath(os.path.join(entry["directory"], entry["file"])) for entry in json.load(database)}
missing = [name for name in sys.argv[2:] if os.path.realpath(name) not in known]
for name in missing:
    print(f"{name}: not in {sys.argv[1]}")
sys.exit(1 if missing else 0)
