#include "report/response_document.h"

#include <iomanip>
#include <locale>
#include <sstream>

#include "report/json_escape.h"

namespace quillmere {

std::string responseJson(const SpotRequest& request, const SpotResult& result) {
  std::ostringstream out;
  // The stream starts with the global locale, which could group digits or use a decimal comma.
  out.imbue(std::locale::classic());
  out << "{\"version\":2,\"request_id\":\"" << jsonEscape(request.request_id)
      << "\",\"project_item_id\":" << request.project_item_id
      << ",\"ok\":" << (result.ok ? "true" : "false") << ",\"message\":\""
      << jsonEscape(result.message) << "\",\"track_index\":" << result.track_index
      << ",\"position_seconds\":" << std::fixed << std::setprecision(9) << result.position_seconds
      << ",\"output_path\":\"";
  // The path, up to a request's size and six times that escaped, is written outside the stream,
  // whose growth would copy it several times over.
  std::string document = out.str();
  appendJsonEscaped(document, result.output_path);
  document += "\"}\n";
  return document;
}

}  // namespace quillmere
