// What `plovctl doctor` looks at. The checks make, load and mend nothing; only a directory that the path table is to
// create may come into being when it is looked for, as it does for everybody.
#ifndef PLOV_CTL_HEALTH_H
#define PLOV_CTL_HEALTH_H

#include <string>
#include <vector>

namespace plov::ctl {

enum class Health { good, notice, problem };

struct Diagnosis {
  Health health;
  std::string about;   // one or two words: "path table", "log lock"
  std::string found;   // what is there
  std::string remedy;  // what to do, most often a command; "" when there is nothing to do
};
using Diagnoses = std::vector<Diagnosis>;

// Directory and path table, configuration, log files and the space that they need, what crashes have left.
// Without a path table that can be used (false) nobody finds any of them.
bool check_directory(Diagnoses& diagnoses);
void check_configuration(Diagnoses& diagnoses);
void check_logs(Diagnoses& diagnoses);
void check_leftovers(Diagnoses& diagnoses);

// What all processes of the machine share: the semaphores of log and map, the map, the daemon's socket.
void check_semaphores(Diagnoses& diagnoses);
void check_map(Diagnoses& diagnoses);
void check_daemon(Diagnoses& diagnoses);

}  // namespace plov::ctl

#endif
