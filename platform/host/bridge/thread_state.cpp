#include "platform/host/bridge/thread_state.h"

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

#include "platform/host/bridge/failure.h"
#include "platform/host/bridge/vm.h"

namespace plov::bridge {
namespace {

struct ThreadState {
  bool attached;
  NamedString* strings;
};

constexpr uintptr_t kPage = 4096;  // no page is smaller

pthread_key_t key;
bool key_made;

void thread_ends(void* value) {
  ThreadState* const state = static_cast<ThreadState*>(value);
  while (NamedString* const string = state->strings) {
    state->strings = string->next;
    free(string);
  }
  if (state->attached)
    if (JavaVM* const vm = find_vm()) vm->DetachCurrentThread();
  free(state);
}

__attribute__((constructor)) void make_key() {
  key_made = pthread_key_create(&key, thread_ends) == 0;
}

ThreadState* state() {
  return key_made ? static_cast<ThreadState*>(pthread_getspecific(key)) : nullptr;
}

ThreadState* make_state() {
  if (ThreadState* const known = state()) return known;
  ThreadState* const made = key_made ? static_cast<ThreadState*>(calloc(1, sizeof(ThreadState))) : nullptr;
  if (made && pthread_setspecific(key, made) == 0) return made;
  free(made);
  return nullptr;
}

// Copies what can be read at `from`, at most `size` bytes, and returns their number. The kernel does it: a fault is a
// short copy.
size_t read_anywhere(const void* from, char* to, size_t size) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(from);
  const size_t on_first_page = kPage - address % kPage;
  const size_t first = size < on_first_page ? size : on_first_page;
  const iovec local = {to, size};
  // Two pieces, for a piece is copied whole or not at all.
  const iovec remote[] = {{const_cast<void*>(from), first}, {reinterpret_cast<void*>(address + first), size - first}};
  const ssize_t copied = process_vm_readv(getpid(), &local, 1, remote, first < size ? 2 : 1, 0);
  return copied < 0 ? 0 : static_cast<size_t>(copied);
}

}  // namespace

void detach_at_end() {
  // Without memory for the note the thread stays attached: the VM counts a daemon thread that has gone.
  if (ThreadState* const own = make_state()) own->attached = true;
}

int32_t set_named_string(const char* name, std::string_view text) {
  const size_t name_length = strnlen(name, kLongestName + 1);
  if (name_length == 0 || name_length > kLongestName)
    return fail(XNB_BAD_ARGUMENT, "a string's name is empty or too long");
  ThreadState* const own = make_state();
  NamedString* const string = own ? static_cast<NamedString*>(malloc(sizeof(NamedString) + text.size())) : nullptr;
  if (!string) return fail(XNB_NO_MEMORY, "no memory for a string of %zu bytes", text.size());
  string->length = text.size();
  memcpy(string->name, name, name_length + 1);
  memcpy(string->text, text.data(), text.size());
  remove_named_string(find_named_string(name));
  string->next = own->strings;
  own->strings = string;
  return XNB_OK;
}

const NamedString* find_named_string(const void* candidate) {
  const ThreadState* const own = state();
  if (!own || !own->strings) return nullptr;
  char name[kLongestName + 1];
  const size_t length = read_anywhere(candidate, name, sizeof name);
  if (!memchr(name, '\0', length)) return nullptr;
  for (const NamedString* string = own->strings; string; string = string->next)
    if (strcmp(string->name, name) == 0) return string;
  return nullptr;
}

void remove_named_string(const NamedString* string) {
  if (!string) return;
  NamedString** link = &state()->strings;
  while (*link != string) link = &(*link)->next;
  *link = string->next;
  free(const_cast<NamedString*>(string));
}

}  // namespace plov::bridge
