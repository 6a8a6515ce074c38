#!/usr/bin/env python3
"""The protocol's JSON Schemas against the guide's examples and against real documents.

Every schema is a valid Draft 2020-12 schema; every JSON example in docs/protocol.md validates
against the schema of its kind; the guide's table of messages holds exactly the messages the
extension writes; and what the library writes in the stand-in host (responses, log lines, the
heartbeat) and the requests quillmere-bridge builds validate, keep the schema's key order and are
one line each.
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
INVALID = "Invalid Quillmere spot request"


class Checks:
    def __init__(self, validators, schemas):
        self.validators, self.schemas = validators, schemas
        self.failures = []
        self.count = 0

    def expect(self, condition, what):
        self.count += 1
        if not condition:
            self.failures.append(what)
            print("FAILED: " + what)

    def valid(self, kind, text, where, written=True):
        """Valid as `kind`; a document the library wrote also keeps the rules a schema cannot
        state: one line, keys in the schema's order, positions with nine decimals."""
        errors = [e.message for e in self.validators[kind].iter_errors(json.loads(text))]
        self.expect(not errors, where + " valid as " + kind + ": " + "; ".join(errors))
        if not written:
            return
        properties = list(self.schemas[kind]["properties"])
        self.expect(text.endswith("\n") and text.count("\n") == 1,
                    where + ": one line, then a line feed")
        keys = [key for key, _ in json.loads(text, object_pairs_hook=lambda pairs: pairs)]
        self.expect(keys == properties, where + ": keys in the schema's order, got " + str(keys))
        for key in ("position_seconds", "cursor"):
            if key in properties:
                self.expect(re.search('"' + key + r'":-?[0-9]+\.[0-9]{9}[,}]', text) is not None,
                            where + ": " + key + " with nine decimals")


def kind_of(document):
    for key, kind in (("command", "request"), ("mode", "heartbeat"), ("output_path", "response"),
                      ("timestamp_ms", "log-line")):
        if key in document:
            return kind
    return None


def check_guide(checks, source):
    guide = (source / "docs" / "protocol.md").read_text(encoding="utf-8")
    # Fenced json blocks and indented one-line documents.
    examples = re.findall(r"```json\n(.*?)```", guide, flags=re.S) + [
        line.strip() + "\n" for line in guide.splitlines()
        if line.startswith("    {") and line.rstrip().endswith("}")]
    seen = set()
    for text in examples:
        kind = kind_of(json.loads(text))
        where = "guide example " + text.strip()[:60]
        checks.expect(kind is not None, where + ": a document of a known kind")
        if kind is not None:
            seen.add(kind)
            checks.valid(kind, text, where, written=kind != "request")
    checks.expect(seen == set(checks.validators), "the guide shows every kind, saw " + str(seen))

    section = re.split(r"\n## [^\n]*Every message[^\n]*\n", guide, maxsplit=1)[1]
    shown = []
    for line in section.split("\n## ", 1)[0].splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if len(cells) > 2 and cells[0].startswith("`") and cells[1].startswith("`") \
                and cells[1].endswith("`"):
            shown.append(cells[1][1:-1])
    texts = {path: path.read_text(encoding="utf-8") for path in (source / "src").rglob("*.cpp")}
    literals, written = set(), set()
    for path, text in texts.items():
        literals.update(re.findall(r'"((?:[^"\\\n]|\\.)*)"', text))
        # The named messages of the spot operation and every literal assigned to a message.
        if path.name == "spot_operation.cpp":
            written.update(literal for name, literal
                           in re.findall(r'const char (k\w+)\[\] =\s*"([^"]*)";', text)
                           if not name.startswith("kUndoLabel"))
        written.update(re.findall(r'message =\s*"([^"]*)";', text))
    checks.expect(len(shown) >= 15 and len(shown) == len(set(shown)),
                  "the guide's table lists each message once")
    checks.expect(not set(shown) - literals, "every message in the guide's table is spelt as the "
                  "source spells it; not in the source: " + repr(sorted(set(shown) - literals)))
    checks.expect(not written - set(shown), "every message of the source is in the guide's "
                  "table; missing: " + repr(sorted(written - set(shown))))


def wait_for(condition, seconds=10.0):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.02)
    return True


def check_library(checks, arguments):
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
        output = open(home / "standin.out", "w")
        standin = subprocess.Popen(
            [arguments.standin, "--module", arguments.module, "--tracks", "2", "--select", "2",
             "--cursor", "1.5", "--project-file", str(project), "--media-path",
             str(home / "Media")], env=environment, stdout=output, stderr=subprocess.STDOUT)
        try:
            checks.expect(wait_for(lambda: (bridge / "bridge_state.json").exists()),
                          "the stand-in host writes a heartbeat")
            runs = [
                (["spot", str(tone), "--name", "Kick 01", "--gain-db", "-6", "--offset", "0.25",
                  "--length", "1", "--project", str(project), "--item-id", "17"], 0),
                (["spot", str(home / "gone.wav")], 1),
                (["spot", str(tone), "--project", str(home / "other.rpp")], 1),
                (["spot", str(tone), "--offset", "5", "--length", "1"], 1),
                (["send", str(home / "refused.json")], 1),
            ]
            for command, code in runs:
                finished = subprocess.run([arguments.tool] + command, env=environment,
                                          capture_output=True, text=True, timeout=60)
                checks.expect(finished.returncode == code, " ".join(command[:2]) + " ends with "
                              + str(code) + ", got " + str(finished.returncode) + " "
                              + finished.stderr.strip())
        finally:
            standin.send_signal(signal.SIGINT)
            standin.wait(timeout=30)
            output.close()
        account = (home / "standin.out").read_text(encoding="utf-8", errors="replace")
        checks.expect("violations: 0" in account, "the stand-in host saw no broken rule")

        responses = sorted((bridge / "responses").glob("*.json"))
        checks.expect(len(responses) == 5, "five responses, got " + str(len(responses)))
        outcomes = []
        for path in responses:
            text = path.read_text(encoding="utf-8")
            checks.valid("response", text, path.name)
            document = json.loads(text)
            outcomes.append((document["ok"], document["message"], document["track_index"]))
        for outcome in [(True, "Spotted to selected REAPER track", 2), (False, INVALID, 0),
                        (False, "Quillmere visible handle range is invalid", 2)]:
            checks.expect(outcome in outcomes, "among the responses: " + str(outcome))

        lines = (bridge / "delivery.log").read_text(encoding="utf-8").splitlines(keepends=True)
        checks.expect(len(lines) == 5, "five log lines, got " + str(len(lines)))
        for number, line in enumerate(lines, 1):
            checks.valid("log-line", line, "log line " + str(number))
        checks.valid("heartbeat", (bridge / "bridge_state.json").read_text(encoding="utf-8"),
                     "bridge_state.json")

        # The requests quillmere-bridge wrote, now archived: the schema refuses exactly the one
        # the extension answered invalid.
        requests = sorted((bridge / "completed").glob("*.json")) + sorted(
            (bridge / "failed").glob("*.json"))
        checks.expect(len(requests) == 5, "five archived requests, got " + str(len(requests)))
        for path in requests:
            response = json.loads((bridge / "responses" / path.name).read_text(encoding="utf-8"))
            if response["message"] == INVALID:
                document = json.loads(path.read_text(encoding="utf-8"))
                checks.expect(any(checks.validators["request"].iter_errors(document)),
                              path.name + ", answered invalid, is refused by the schema")
            else:
                checks.valid("request", path.read_text(encoding="utf-8"), path.name, False)


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
    schemas = {kind: json.loads((source / "docs" / "schemas" / (kind + ".schema.json"))
                                .read_text(encoding="utf-8"))
               for kind in ("request", "response", "log-line", "heartbeat")}
    for schema in schemas.values():
        jsonschema.Draft202012Validator.check_schema(schema)
    checks = Checks({kind: jsonschema.Draft202012Validator(schema)
                     for kind, schema in schemas.items()}, schemas)
    check_guide(checks, source)
    check_library(checks, arguments)
    print(str(checks.count - len(checks.failures)) + " passed, " + str(len(checks.failures))
          + " failed")
    return 1 if checks.failures else 0


if __name__ == "__main__":
    sys.exit(main())
