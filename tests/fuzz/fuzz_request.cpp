// A request: content type, announced length ("": the real one), and fields,
// sent once as a body and once as a query string.

#include "fuzz.h"

static auto decode(const char *method)
{
  fuzz_environment("REQUEST_METHOD", method);
  std::pair<int, std::map<std::string, std::string>> result(cgiInit(), {});
  char **names = nullptr;
  assert(cgiFormEntries(&names) == cgiFormSuccess);
  for (char **name = names; *name != nullptr; name++) {
    int size = 0;
    assert(cgiFormStringSpaceNeeded(*name, &size) == cgiFormSuccess);
    std::string value(static_cast<size_t>(size), '?');
    assert(cgiFormString(*name, value.data(), size) == cgiFormSuccess);
    assert(value.find('\0') == value.size() - 1 && **name != '\0');
    assert(result.second.emplace(*name, value).second);
  }
  cgiStringArrayFree(names);
  cgiFreeResources();
  return result;
}

void fuzz(std::string_view rest)
{
  fuzz_environment("CONTENT_TYPE", fuzz_text(fuzz_part(&rest)));
  const std::string length = fuzz_text(fuzz_part(&rest));
  const std::string real = std::to_string(rest.size());
  fuzz_environment("CONTENT_LENGTH", length.empty() ? real : length);
  fuzz_environment("QUERY_STRING", fuzz_text(rest));
  dup2(fuzz_file(rest), STDIN_FILENO);
  const auto [error, fields] = decode("POST");
  const auto [no_error, query_fields] = decode("GET");
  assert(no_error == CGI_OK && (error == CGI_OK || fields.empty()));
  const bool whole = length.empty() && rest.find('\0') == rest.npos;
  assert(fields == query_fields || error != CGI_OK || !whole);
}
