#include "quillmere_bridge/request_builder.h"

#include <cstdio>
#include <iomanip>
#include <locale>
#include <sstream>

#include "request/spot_request.h"

namespace bridge_tool {

namespace {

void appendUnicodeEscape(std::string& out, unsigned char byte) {
  char escape[7];
  std::snprintf(escape, sizeof escape, "\\u%04x", byte);
  out += escape;
}

std::string mismatch(const char* key) {
  return std::string("the extension would not read \"") + key + "\" as given";
}

}  // namespace

std::string jsonStringLiteral(const std::string& value) {
  std::string out = "\"";
  for (std::size_t i = 0; i < value.size(); ++i) {
    const auto byte = static_cast<unsigned char>(value[i]);
    // The reader finds a key by its quoted name anywhere in the text, so a value never carries a
    // bare quote, and a value that is a key name has its first letter escaped.
    if (byte == '"' || byte < 0x20 || (i == 0 && quillmere::isRequestKey(value))) {
      appendUnicodeEscape(out, byte);
    } else if (byte == '\\') {
      out += "\\\\";
    } else {
      out += static_cast<char>(byte);
    }
  }
  return out + "\"";
}

std::string jsonNumberLiteral(double value) {
  std::string text;
  for (int precision = 1; precision <= 17; ++precision) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << std::setprecision(precision) << value;
    text = out.str();
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    double back = 0.0;
    if (in >> back && back == value) break;
  }
  return text;
}

BuiltRequest buildSpotRequest(const quillmere::SpotRequest& settings) {
  const bool bound = !settings.expected_project_path.empty();
  std::string document = "{\"version\":";
  document += bound ? "4" : "3";
  document += ",\"command\":\"spot\",\"request_id\":" + jsonStringLiteral(settings.request_id);
  document += ",\"project_item_id\":" + std::to_string(settings.project_item_id);
  document += ",\"source_path\":" + jsonStringLiteral(settings.source_path);
  if (bound) {
    document += ",\"expected_project_path\":" + jsonStringLiteral(settings.expected_project_path);
  }
  document += ",\"display_name\":" + jsonStringLiteral(settings.display_name);
  document += ",\"gain_db\":" + jsonNumberLiteral(settings.gain_db);
  document += ",\"playback_rate\":" + jsonNumberLiteral(settings.playback_rate);
  document += std::string(",\"full_handles\":") + (settings.full_handles ? "true" : "false");
  document += ",\"source_offset_seconds\":" + jsonNumberLiteral(settings.source_offset_seconds);
  document += ",\"visible_length_seconds\":" + jsonNumberLiteral(settings.visible_length_seconds);
  document += "}\n";

  const std::optional<quillmere::SpotRequest> read = quillmere::parseRequest(document);
  if (!read) return {"", "the extension's reader refuses this request"};
  const char* problem = nullptr;
  if (read->request_id != settings.request_id)
    problem = "request_id";
  else if (read->project_item_id != settings.project_item_id)
    problem = "project_item_id";
  else if (read->source_path != settings.source_path)
    problem = "source_path";
  else if (read->expected_project_path != settings.expected_project_path) {
    problem = "expected_project_path";
  } else if (read->display_name != settings.display_name)
    problem = "display_name";
  else if (read->gain_db != settings.gain_db)
    problem = "gain_db";
  else if (read->playback_rate != settings.playback_rate)
    problem = "playback_rate";
  else if (read->full_handles != settings.full_handles)
    problem = "full_handles";
  else if (read->source_offset_seconds != settings.source_offset_seconds) {
    problem = "source_offset_seconds";
  } else if (read->visible_length_seconds != settings.visible_length_seconds) {
    problem = "visible_length_seconds";
  }
  if (problem != nullptr) return {"", mismatch(problem)};
  return {document, ""};
}

}  // namespace bridge_tool
