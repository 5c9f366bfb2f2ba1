#include "process_table.h"

#include <unistd.h>

#include <cstring>
#include <nlohmann/json.hpp>

namespace plov::pced {

void ProcessTable::add(PeerId peer, pid_t pid, const pce_wire_register& registration, time_t now) {
  ++counters_.registered;
  const auto known = processes_.find(peer);
  processes_[peer] = {pid,
                      registration.header.pid,
                      registration.header.tid,
                      registration.process_type,
                      {registration.program_name, strnlen(registration.program_name, PCE_PROGRAM_NAME_SIZE)},
                      now,
                      known == processes_.end() ? 0 : known->second.reports};
}

void ProcessTable::remove(PeerId peer) {
  if (processes_.erase(peer) > 0) ++counters_.deregistered;
}

void ProcessTable::report(PeerId peer) {
  ++counters_.reports;
  if (const auto entry = processes_.find(peer); entry != processes_.end()) ++entry->second.reports;
}

std::optional<Process> ProcessTable::forget(PeerId peer) {
  const auto entry = processes_.find(peer);
  if (entry == processes_.end()) return std::nullopt;
  Process process = std::move(entry->second);
  processes_.erase(entry);
  ++counters_.vanished;
  return process;
}

const Process* ProcessTable::find(PeerId peer) const {
  const auto entry = processes_.find(peer);
  return entry == processes_.end() ? nullptr : &entry->second;
}

std::string ProcessTable::to_json() const {
  using Json = nlohmann::ordered_json;
  Json table = {{"daemon",
                 {{"pid", getpid()},
                  {"since", started_},
                  {"registered", counters_.registered},
                  {"deregistered", counters_.deregistered},
                  {"vanished", counters_.vanished},
                  {"reports", counters_.reports},
                  {"recorded", counters_.recorded},
                  {"failed", counters_.failed},
                  {"refused", counters_.refused}}},
                {"processes", Json::array()}};
  for (const auto& [peer, process] : processes_)
    table["processes"].push_back({{"pid", process.pid},
                                  {"own_pid", process.own_pid},
                                  {"tid", process.tid},
                                  {"type", process.type},
                                  {"type_name", process_type_name(process.type)},
                                  {"program", process.program},
                                  {"since", process.since},
                                  {"reports", process.reports}});
  return table.dump(-1, ' ', false, Json::error_handler_t::replace);
}

const char* process_type_name(uint16_t type) {
  switch (type) {
    case 0:
      return "temporary";
    case 1:
      return "permanent";
    case 2:
      return "analysis";
    case 3:
      return "no async";
    default:
      return "unknown";
  }
}

}  // namespace plov::pced
