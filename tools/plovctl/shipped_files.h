// The files of a console directory, as shipped in etc/.
#ifndef PLOV_CTL_SHIPPED_FILES_H
#define PLOV_CTL_SHIPPED_FILES_H

namespace plov::ctl {

struct ShippedFile {
  const char* name;
  const char* text;
};
extern const ShippedFile shipped_files[2];

}  // namespace plov::ctl

#endif
