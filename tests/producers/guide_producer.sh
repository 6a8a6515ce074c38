#!/bin/sh
# A producer written from docs/protocol.md alone: guide_producer.sh SOURCE DISPLAY_NAME
# Drops one spot request into the bridge folder of $HOME, waits up to ten seconds for its response
# and prints it. Exit 0 when answered, 3 when not.
set -eu
[ -n "${HOME:-}" ] || { echo "HOME is not set" >&2; exit 2; }
bridge="$HOME/Library/Application Support/Quillmere/reaper-bridge"

# A quoted key name must never appear inside a value: backslash doubled, quote as \u0022.
json_string() {
  printf '"%s"' "$(printf '%s' "$1" | sed -e 's/\\/\\\\/g' -e 's/"/\\u0022/g')"
}

# Fixed-width UTC time, then this process: sorts in submission order, never reused.
id="$(date -u +%Y%m%dT%H%M%S%N)Z-$$"
partial="$bridge/requests/$id.json.partial"
printf '{"version":3,"command":"spot","request_id":"%s","project_item_id":0,"source_path":%s,"display_name":%s}\n' \
  "$id" "$(json_string "$1")" "$(json_string "$2")" >"$partial"
sync "$partial"
mv "$partial" "$bridge/requests/$id.json"

response="$bridge/responses/$id.json"
tries=0
until [ -f "$response" ]; do
  tries=$((tries + 1))
  if [ "$tries" -gt 200 ]; then
    # Not claimed yet: take it back so that it is not placed later.
    rm -f "$bridge/requests/$id.json"
    echo "no response within ten seconds" >&2
    exit 3
  fi
  sleep 0.05
done
cat "$response"
