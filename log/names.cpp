#include "log/names.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>

#include "xlog.h"

namespace plov::log {

void parse_name(const char* session, LogName* name) {
  if (session[0] == '!') {
    const char* rest = session + 1;
    const bool path = strchr(rest, '/') != nullptr;
    name->form = path ? LogName::Form::full_path : LogName::Form::bare_file;
    name->kind = XLOG_KIND_MAIN;  // whatever it is called
    name->looked_up = path ? rest : session;
    name->file = rest;
    name->opened = path ? session : rest;
    name->too_long = false;
    return;
  }
  name->form = LogName::Form::short_name;
  name->too_long = strlen(session) > kMaxShortName;
  if (session[0] == '\0' || strcasecmp(session, "log") == 0) {
    name->kind = XLOG_KIND_MAIN;
    session = "log";
  } else if (strncmp(session, "e4", 2) == 0) {
    name->kind = XLOG_KIND_E4;
  } else if (strncmp(session, "alt", 3) == 0) {
    name->kind = XLOG_KIND_ALT;
  } else {
    name->kind = XLOG_KIND_SHORT_NAME;
  }
  snprintf(name->built, sizeof name->built, "wexo%.*s.log", static_cast<int>(kMaxShortName), session);
  name->looked_up = name->file = name->opened = name->built;
}

void locate(const LogName& name, LogPath* path) {
  path->sysrc = 0;
  path->code = 0;
  path->directory[0] = path->path[0] = '\0';
  if (name.form != LogName::Form::full_path) {
    path->sysrc = xdfc_query_file_location(name.looked_up, path->directory, &path->code);
    if (path->code != 0) return;
  }
  const int length = snprintf(path->path, sizeof path->path, "%s%s", path->directory, name.file);
  if (length < 0 || static_cast<uint32_t>(length) >= sizeof path->path) {
    path->path[0] = '\0';
    path->sysrc = 2;
    path->code = ENAMETOOLONG;
  }
}

}  // namespace plov::log
