// plovpced --table: asks the running daemon and shows what it answers.
#ifndef PLOV_PCED_TABLE_VIEW_H
#define PLOV_PCED_TABLE_VIEW_H

namespace plov::pced {

// Throws when there is no daemon, or one that is not to be trusted.
void show_table(bool json);

}  // namespace plov::pced

#endif
