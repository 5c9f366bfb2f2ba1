// plovctl ls: the library's listings of files, each in its own form.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "escape.h"
#include "log_source.h"
#include "output.h"
#include "plovmemdebug.h"
#include "verbs.h"
#include "xdfc.h"

namespace plov::ctl {
namespace {

struct Options {
  std::string pattern = "*";
  bool long_listing = false;  // also without any of the others
  bool names = false;
  bool packed = false;
  bool count = false;
  std::string file;
};

// The columns of a listing file (xdfc_list_file).
constexpr size_t kCountLine = 8, kLine = 78;
constexpr size_t kSizeColumn = 49, kSizeWidth = 10, kDateColumn = 61, kDateWidth = 8, kTimeColumn = 71, kTimeWidth = 6;

void check(const char* call, const std::string& pattern, Family family, int32_t sysrc, uint32_t comprc) {
  if (sysrc != 0) throw CallFailure(call, escape(pattern), family, sysrc, comprc);
}

Json to_json(const std::string& key, std::string_view text) {
  Json object = {{key, text}};
  if (!is_utf8(text)) object[key + "_base64"] = base64({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
  return object;
}

void print_text(const char* key, std::string_view text, const Session& session) {
  if (session.json)
    print_line(to_json(key, text));
  else
    print(escape(text) + "\n");
}

std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  for (size_t at = 0, end; (end = text.find('\n', at)) != std::string_view::npos; at = end + 1)
    lines.push_back(text.substr(at, end - at));
  return lines;
}

// Line by line. What a failed emulation had until then is shown before the failure.
void show_reply(const char* call, int32_t (*emulation)(char**, const char*, uint32_t*), const std::string& pattern,
                const char* key, const Session& session) {
  char* reply = nullptr;
  uint32_t comprc = 0;
  const int32_t sysrc = emulation(&reply, pattern.c_str(), &comprc);
  const std::string text = reply ? reply : "";
  plovmemdebug_free(reply, __FILE__, __LINE__);
  for (const std::string_view line : lines_of(text)) print_text(key, line, session);
  check(call, pattern, Family::listing, sysrc, comprc);
}

void show_packed(const std::string& pattern, const Session& session) {
  std::string buffer(64 << 10, '\0');
  uint32_t count = 0, comprc = 0;
  int32_t sysrc;
  while ((sysrc = xdfc_list_file_mem(pattern.c_str(), buffer.data(), static_cast<uint32_t>(buffer.size()), &count,
                                     &comprc)) != 0 &&
         comprc == XDFC_BUFFER_TOO_SMALL && buffer.size() <= UINT32_MAX / 4)
    buffer.resize(buffer.size() * 2);
  const char* name = buffer.data();
  for (uint32_t i = 0; i < count; ++i, name += std::string_view(name).size() + 1) print_text("name", name, session);
  check("xdfc_list_file_mem", pattern, Family::xdfc, sysrc, comprc);
}

void show_count(const std::string& pattern, const Session& session) {
  uint32_t count = 0, comprc = 0;
  const int32_t sysrc = xdfc_count_files(&count, pattern.c_str(), &comprc);
  check("xdfc_count_files", pattern, Family::listing, sysrc, comprc);
  if (session.json)
    print_line({{"count", count}});
  else
    print(std::to_string(count) + "\n");
}

std::string_view trimmed(std::string_view column) {
  column.remove_prefix(std::min(column.find_first_not_of(' '), column.size()));
  return column;
}

// By columns, for a name may hold a line feed.
void show_listing_file(const Options& options, const std::string& pattern, const Session& session) {
  const bool is_path = options.file.find('/') != std::string::npos;
  const std::string name = options.file.starts_with("!") || !is_path ? options.file : "!" + given_path(options.file);
  uint32_t comprc = 0;
  const int32_t sysrc = xdfc_list_file(pattern.c_str(), name.c_str(), &comprc);
  check("xdfc_list_file", pattern + " into " + name, Family::xdfc, sysrc, comprc);
  const std::string path = name.starts_with("!") ? name.substr(1) : locate(name) + name;
  const std::vector<uint8_t> bytes = read_whole_file(path);
  const std::string_view listing(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (!session.json) print(escape(listing.substr(0, listing.find_first_of(" \n"))) + " in " + escape(path) + "\n");
  for (size_t at = kCountLine; at + kLine <= listing.size(); at += kLine) {
    const std::string_view line = listing.substr(at, kLine);
    if (!session.json) {
      print(escape(line.substr(0, kLine - 1)) + "\n");
      continue;
    }
    Json object = to_json("name", trim_field(line.data(), kSizeColumn));
    if (const std::string_view size = trimmed(line.substr(kSizeColumn, kSizeWidth)); !size.empty()) {
      object["size"] = size;
      object["date"] = line.substr(kDateColumn, kDateWidth);
      object["time"] = trimmed(line.substr(kTimeColumn, kTimeWidth));
    }
    print_line(object);
  }
}

void list(const Options& options, const Session& session) {
  // As given: the library's limits are for what it is handed.
  const std::string pattern = session.root.empty() ? options.pattern : given_path(options.pattern);
  if (options.packed) return show_packed(pattern, session);
  if (options.count) return show_count(pattern, session);
  if (!options.file.empty()) return show_listing_file(options, pattern, session);
  if (options.names) return show_reply("xdfc_emul_ftp_nlst", xdfc_emul_ftp_nlst, pattern, "name", session);
  show_reply("xdfc_emul_xrem_dir", xdfc_emul_xrem_dir, pattern, "line", session);
}

}  // namespace

void add_ls(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb =
      app.add_subcommand("ls", "Lists files as the library does: long, by name, packed, counted, to a file");
  verb->add_option("PATTERN", options->pattern, "A path whose last component may hold *, ? and [] (*)")
      ->check(not_empty);
  CLI::Option_group* form = verb->add_option_group("Form");
  form->add_flag("--long", options->long_listing, "The reply of a remote directory command (when no form is given)");
  form->add_flag("--names", options->names, "The reply of the FTP command NLST: regular files");
  form->add_flag("--packed", options->packed, "Names in the directory's own order, as packed into memory");
  form->add_flag("--count", options->count, "The number of regular files");
  form->add_option("--file", options->file,
                   "Write a listing file (a name of the path table, a path, !PATH) and show it")
      ->check(not_empty);
  form->require_option(0, 1);
  add_json(*verb, session);
  verb->callback([options, &session] { list(*options, session); });
}

}  // namespace plov::ctl
