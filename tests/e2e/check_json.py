# Checks each line of standard input, a JSON object, against the schema of the manual page; prints the count.
import json
import os
import sys

import jsonschema

with open(os.environ["TEV_SOURCE"] + "/docs/tevctl.1", encoding="ascii") as page:
    schema = json.loads(page.read().split(".EX\n", 1)[1].split(".EE", 1)[0].replace("\\-", "-"))
jsonschema.Draft7Validator.check_schema(schema)
objects = [json.loads(line) for line in sys.stdin.buffer]
for parsed in objects:
    jsonschema.validate(parsed, schema)
print(len(objects), "objects")
