#!/usr/bin/env python3
"""The protocol's JSON Schemas against the guide's examples and against real documents.

protocol_schema_test.py --source DIR --standin EXE --module LIB --tool EXE --tone EXE
    [--require-validator]

Checks that every schema is a valid Draft 2020-12 schema; that every JSON example in
docs/protocol.md validates against the schema of its kind; that the guide's table of messages holds
exactly the messages the extension writes; and that the documents the library writes in the
stand-in host (a success, failures before and inside REAPER's edit, a project mismatch, an
unreadable request, their log lines, the heartbeat) and the requests quillmere-bridge builds
validate, keep their keys in the schema's order, and are one line each.
"""

import argparse
import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SKIPPED = 77  # CTest's SKIP_RETURN_CODE for this test

SPOTTED = "Spotted to selected REAPER track"


class Checks:
    def __init__(self):
        self.failures = []
        self.count = 0

    def expect(self, condition, what):
        self.count += 1
        if not condition:
            self.failures.append(what)
            print("FAILED: " + what)


def load_schemas(folder):
    return {
        kind: json.loads((folder / (kind + ".schema.json")).read_text(encoding="utf-8"))
        for kind in ("request", "response", "log-line", "heartbeat")
    }


def kind_of(document):
    if "command" in document:
        return "request"
    if "mode" in document:
        return "heartbeat"
    if "output_path" in document:
        return "response"
    if "timestamp_ms" in document and "message" in document:
        return "log-line"
    return None


def errors_of(validator, document):
    return [error.message for error in validator.iter_errors(document)]


def check_text(checks, schema, text, where):
    """The rules of the written text that a schema cannot state."""
    checks.expect(text.endswith("\n") and text.count("\n") == 1,
                  where + ": one line, then a line feed")
    keys = list(json.loads(text, object_pairs_hook=lambda pairs: pairs))
    keys = [key for key, _ in keys]
    checks.expect(keys == list(schema["properties"]),
                  where + ": keys in the schema's order, got " + ",".join(keys))
    for key in ("position_seconds", "cursor"):
        if key in schema["properties"]:
            checks.expect(re.search('"' + key + r'":-?[0-9]+\.[0-9]{9}[,}]', text) is not None,
                          where + ": " + key + " with nine decimals")


def guide_examples(guide):
    """Every JSON object shown in the guide: fenced json blocks and indented one-line documents."""
    examples = []
    for block in re.findall(r"```json\n(.*?)```", guide, flags=re.S):
        examples.append(block)
    for line in guide.splitlines():
        if line.startswith("    {") and line.rstrip().endswith("}"):
            examples.append(line.strip() + "\n")
    return examples


def guide_messages(guide):
    """The `message` column of the guide's table of messages."""
    section = re.split(r"\n## [^\n]*Every message[^\n]*\n", guide, maxsplit=1)[1]
    section = section.split("\n## ", 1)[0]
    messages = []
    for line in section.splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if len(cells) > 2 and cells[0].startswith("`") and cells[1].startswith("`") \
                and cells[1].endswith("`"):
            messages.append(cells[1][1:-1])
    return messages


def source_texts(source):
    return {path: path.read_text(encoding="utf-8") for path in sorted((source / "src").rglob("*.cpp"))}


def source_literals(texts):
    """Every string literal in the extension's source."""
    literals = set()
    for text in texts.values():
        literals.update(re.findall(r'"((?:[^"\\\n]|\\.)*)"', text))
    return literals


def source_messages(texts):
    """The messages the extension's source writes into a response: the named messages of the spot
    operation and every literal assigned to a message."""
    messages = set()
    for path, text in texts.items():
        if path.name == "spot_operation.cpp":
            for name, literal in re.findall(r'const char (k\w+)\[\] =\s*"([^"]*)";', text):
                if not name.startswith("kUndoLabel"):
                    messages.add(literal)
        messages.update(re.findall(r'message =\s*"([^"]*)";', text))
    return messages


def check_guide(checks, source, validators, schemas):
    guide = (source / "docs" / "protocol.md").read_text(encoding="utf-8")
    seen = set()
    for text in guide_examples(guide):
        document = json.loads(text)
        kind = kind_of(document)
        where = "guide example " + text.strip()[:60]
        checks.expect(kind is not None, where + ": a document of a known kind")
        if kind is None:
            continue
        seen.add(kind)
        errors = errors_of(validators[kind], document)
        checks.expect(not errors, where + " valid as " + kind + ": " + "; ".join(errors))
        if kind != "request":
            check_text(checks, schemas[kind], text, where)
    checks.expect(seen == set(validators), "the guide shows every kind of document, saw "
                  + ", ".join(sorted(seen)))

    shown = guide_messages(guide)
    texts = source_texts(source)
    checks.expect(len(shown) >= 15 and len(shown) == len(set(shown)),
                  "the guide's table lists each message once")
    missing = set(shown) - source_literals(texts)
    checks.expect(not missing, "every message in the guide's table is spelt as the source spells "
                  "it; not in the source: " + repr(sorted(missing)))
    unlisted = source_messages(texts) - set(shown)
    checks.expect(not unlisted, "every message of the source is in the guide's table; missing: "
                  + repr(sorted(unlisted)))


def wait_for(condition, seconds=10.0):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.02)
    return True


def check_library(checks, arguments, validators, schemas):
    with tempfile.TemporaryDirectory() as home_name:
        home = Path(home_name)
        bridge = home / "Library" / "Application Support" / "Quillmere" / "reaper-bridge"
        environment = dict(os.environ, HOME=str(home))
        tone = home / "take.wav"
        subprocess.run([arguments.tone, str(tone), "2"], check=True)
        project = home / "song.rpp"
        project.write_text("")
        (home / "other.rpp").write_text("")
        # Well-formed JSON, but a version 4 request without its project: refused by both.
        (home / "refused.json").write_text(
            '{"version":4,"command":"spot","request_id":"refused-1","project_item_id":1,'
            '"source_path":"' + str(tone) + '"}')
        standin_output = open(home / "standin.out", "w")
        standin = subprocess.Popen(
            [arguments.standin, "--module", arguments.module, "--tracks", "2", "--select", "2",
             "--cursor", "1.5", "--project-file", str(project), "--media-path",
             str(home / "Media")],
            env=environment, stdout=standin_output, stderr=subprocess.STDOUT)
        try:
            checks.expect(wait_for(lambda: (bridge / "bridge_state.json").exists()),
                          "the stand-in host writes a heartbeat")
            runs = [
                ("a success", ["spot", str(tone), "--name", "Kick 01", "--gain-db", "-6",
                               "--offset", "0.25", "--length", "1", "--project", str(project),
                               "--item-id", "17"], 0),
                ("a failure before the edit", ["spot", str(home / "gone.wav")], 1),
                ("a project mismatch", ["spot", str(tone), "--project", str(home / "other.rpp")],
                 1),
                ("a failure inside the edit", ["spot", str(tone), "--offset", "5", "--length",
                                               "1"], 1),
                ("an unreadable request", ["send", str(home / "refused.json")], 1),
            ]
            for what, command, code in runs:
                finished = subprocess.run([arguments.tool] + command, env=environment,
                                          capture_output=True, text=True, timeout=60)
                checks.expect(finished.returncode == code,
                              what + ": quillmere-bridge ends with " + str(code) + ", got "
                              + str(finished.returncode) + " " + finished.stderr.strip())
        finally:
            standin.send_signal(signal.SIGINT)
            standin.wait(timeout=30)
            standin_output.close()
        account = (home / "standin.out").read_text(encoding="utf-8", errors="replace")
        checks.expect("violations: 0" in account, "the stand-in host saw no broken rule")

        responses = sorted((bridge / "responses").glob("*.json"))
        checks.expect(len(responses) == 5, "five responses, got " + str(len(responses)))
        outcomes = []
        for path in responses:
            text = path.read_text(encoding="utf-8")
            document = json.loads(text)
            errors = errors_of(validators["response"], document)
            checks.expect(not errors, path.name + " valid: " + "; ".join(errors))
            check_text(checks, schemas["response"], text, path.name)
            outcomes.append((document["ok"], document["message"], document["track_index"]))
        checks.expect((True, SPOTTED, 2) in outcomes, "the success is among the responses")
        checks.expect((False, "Quillmere visible handle range is invalid", 2) in outcomes,
                      "the failure inside the edit names the track it reached")
        checks.expect((False, "Invalid Quillmere spot request", 0) in outcomes,
                      "the unreadable request is answered")

        log = (bridge / "delivery.log").read_text(encoding="utf-8")
        lines = log.splitlines(keepends=True)
        checks.expect(len(lines) == 5, "five log lines, got " + str(len(lines)))
        for number, line in enumerate(lines, 1):
            errors = errors_of(validators["log-line"], json.loads(line))
            checks.expect(not errors, "log line " + str(number) + " valid: " + "; ".join(errors))
            check_text(checks, schemas["log-line"], line, "log line " + str(number))

        heartbeat = (bridge / "bridge_state.json").read_text(encoding="utf-8")
        errors = errors_of(validators["heartbeat"], json.loads(heartbeat))
        checks.expect(not errors, "bridge_state.json valid: " + "; ".join(errors))
        check_text(checks, schemas["heartbeat"], heartbeat, "bridge_state.json")

        # The requests quillmere-bridge wrote, now archived: the schema refuses exactly the one
        # the extension answered invalid.
        requests = sorted((bridge / "completed").glob("*.json")) + sorted(
            (bridge / "failed").glob("*.json"))
        checks.expect(len(requests) == 5, "five archived requests, got " + str(len(requests)))
        for path in requests:
            document = json.loads(path.read_text(encoding="utf-8"))
            response = json.loads((bridge / "responses" / path.name).read_text(encoding="utf-8"))
            errors = errors_of(validators["request"], document)
            if response["message"] == "Invalid Quillmere spot request":
                checks.expect(errors, path.name + ", answered invalid, is refused by the schema")
            else:
                checks.expect(not errors, path.name + " valid: " + "; ".join(errors))


def main():
    parser = argparse.ArgumentParser()
    for name in ("--source", "--standin", "--module", "--tool", "--tone"):
        parser.add_argument(name, required=True)
    parser.add_argument("--require-validator", action="store_true")
    arguments = parser.parse_args()
    try:
        import jsonschema
    except ImportError:
        print("no JSON Schema validator for " + sys.executable + " (Debian: python3-jsonschema)")
        return 1 if arguments.require_validator else SKIPPED

    source = Path(arguments.source)
    schemas = load_schemas(source / "docs" / "schemas")
    validators = {}
    checks = Checks()
    for kind, schema in schemas.items():
        jsonschema.Draft202012Validator.check_schema(schema)
        validators[kind] = jsonschema.Draft202012Validator(schema)

    check_guide(checks, source, validators, schemas)
    check_library(checks, arguments, validators, schemas)
    print(str(checks.count - len(checks.failures)) + " passed, " + str(len(checks.failures))
          + " failed")
    return 1 if checks.failures else 0


if __name__ == "__main__":
    sys.exit(main())
