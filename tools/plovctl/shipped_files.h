// The files of a console directory, as shipped in etc/.
#ifndef PLOV_CTL_SHIPPED_FILES_H
#define PLOV_CTL_SHIPPED_FILES_H

namespace plov::ctl {

struct ShippedFile {
  const char* name;  // below the console directory
  const char* text;
};
extern const ShippedFile shipped_files[4];

// Of this one the map's own files are made.
inline constexpr char kShippedMapSource[] = "ywkzsim.txt";

}  // namespace plov::ctl

#endif
