#!/bin/sh
# A producer written from docs/protocol.md alone: guide_producer.sh SOURCE DISPLAY_NAME
# Drops one spot request into the bridge folder of $HOME, waits until it is archived (taking it
# back when it is not taken within ten seconds) and prints its response. Exit 0 when answered, 3
# when taken back.
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

# The answer is final once the request is archived.
tries=0
until [ -e "$bridge/completed/$id.json" ] || [ -e "$bridge/failed/$id.json" ]; do
  tries=$((tries + 1))
  # Still unclaimed after ten seconds: take it back so that it is not placed later. Once taken,
  # it is answered, so the wait goes on.
  if [ "$tries" -gt 200 ] && rm "$bridge/requests/$id.json" 2>/dev/null; then
    echo "not taken within ten seconds; taken back" >&2
    exit 3
  fi
  sleep 0.05
done
cat "$bridge/responses/$id.json"
