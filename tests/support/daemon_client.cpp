#include "support/daemon_client.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

namespace test {
namespace {

std::string start_command(const std::string& options, const std::string& program) {
  const std::string directory = std::filesystem::current_path().string() + "/run";
  std::filesystem::create_directory(directory);
  setenv("PCE_TEMPDIR", directory.c_str(), 1);
  return program + " " + options + " 2>&1";
}

}  // namespace

Daemon::Daemon(const std::string& options, const std::string& program) : process(start_command(options, program)) {}

std::string Daemon::line() const {
  std::string text;
  for (char c; read(process.output(), &c, 1) == 1 && c != '\n';) text += c;
  return text;
}

std::string Daemon::line_with(std::string_view text) const {
  for (;;)
    if (const std::string next = line(); next.empty() || next.find(text) != std::string::npos) return next;
}

void Daemon::stop() const {
  kill(process.id(), SIGTERM);
}

std::string socket_path() {
  return std::string(getenv("PCE_TEMPDIR")) + "/-SOCKET-YWKEPPCE-DISPATCH.XPCE";
}

Peer::Peer() : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address = {AF_UNIX, {}};
  strcpy(address.sun_path, socket_path().c_str());
  connected_ = connect(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

Peer::~Peer() {
  close(descriptor_);
}

void Peer::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<size_t>(count));
  }
}

std::optional<pce_wire_header> Peer::answer() const {
  pce_wire_header header;
  if (recv(descriptor_, &header, sizeof header, MSG_WAITALL) != sizeof header) return std::nullopt;
  return header;
}

std::string Peer::rest() const {
  std::string text;
  char buffer[4096];
  for (ssize_t got; (got = recv(descriptor_, buffer, sizeof buffer, 0)) > 0;)
    text.append(buffer, static_cast<size_t>(got));
  return text;
}

std::string bytes_of(const void* message, size_t size) {
  return {static_cast<const char*>(message), size};
}

std::string registration(const std::string& program, uint16_t type) {
  pce_wire_register message = {
      {sizeof message, SMSG_REGISTER_REQ, 0xDEADBEEF, static_cast<uint32_t>(getpid()), 77}, type, {}};
  program.copy(message.program_name, sizeof message.program_name);
  return bytes_of(&message, sizeof message);
}

std::string deregistration() {
  const pce_wire_header message = {sizeof message, SMSG_DEREGISTER_REQ, 0, static_cast<uint32_t>(getpid()), 77};
  return bytes_of(&message, sizeof message);
}

std::unique_ptr<pce_wire_take_log> crash_report(const std::string& program) {
  auto report = std::make_unique<pce_wire_take_log>();
  report->header = {sizeof *report, SMSG_TAKE_LOG_REQ, 0, static_cast<uint32_t>(getpid()), 77};
  report->report_id = 0x40A;
  report->signal = SIGSEGV;
  const std::string lines[] = {"Exception Number: 11",
                               "Program name is >" + program + "<",
                               "User Thread tag: >door watcher<",
                               "Invalid memory access",
                               "Address of invalid memory access is 0x10",
                               "Stack: Base=0xf7d00000  Size=800000",
                               "PPID=1  PID=1267  TIB=F7C5A740",
                               "EDI:00000001 ESI:00000010 EAX:00000000",
                               "EBX:56558FD4 ECX:FFFFCE00 EDX:FFFFCE24",
                               "EBP:FFFFCDE8 EIP:565561F9 ESP:FFFFCDE0",
                               "Stack from Esp to Ebp:  01000000 20CEFFFF.",
                               "1.At 0xffffcde0 is Ebp/Eip pair: ffffce08/56556233.",
                               "  Stk: 08CEFFFF 33625556",
                               "2.At 0xffffce08 is Ebp/Eip pair: 00000000/00000000.",
                               "  Stk: No stack data."};
  uint32_t length = 0;
  for (const std::string& line : lines) {
    memcpy(report->text + length, line.c_str(), line.size() + 1);
    length += static_cast<uint32_t>(line.size() + 1);
  }
  report->text_length = length;
  report->stack_length = 48;
  report->stack[0] = 40;
  memcpy(report->stack + 40, "\x08\xCE\xFF\xFF\x33\x62\x55\x56", 8);
  report->process_trace_length = report->thread_trace_length = PCE_TRACE_AREA_SIZE;
  strcpy(report->process_trace,
         "first line\nlast line\nXPCE___F: xpce_permHandler: permanent exception handler running with signal 11\n");
  strcpy(report->thread_trace, "last line\n");
  strcpy(report->backtrace,
         "/usr/bin/door(_ZN4door5watch4openEv+0x1a)[0x565561f9]\n/lib/libc.so.6(+0x21519)[0xf7c21519]\n");
  report->backtrace_length = static_cast<uint32_t>(strlen(report->backtrace));
  return report;
}

}  // namespace test
