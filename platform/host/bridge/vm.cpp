#include "platform/host/bridge/vm.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "platform/host/bridge/failure.h"
#include "platform/host/bridge/thread_state.h"
#include "xtr.h"

// The library's crash guard is in place. Weak: the bridge lies below the library and serves a process without it.
extern "C" __attribute__((weak)) uint32_t xlog_sig_flag;

namespace plov::bridge {
namespace {

// A start looks so often, and after so many microseconds each, for a moment without the crash guard: 2 s at least.
constexpr int kPatience = 40000;
constexpr useconds_t kPause = 50;

using FindVms = jint (*)(JavaVM**, jsize, jsize*);
using CreateVm = jint (*)(JavaVM**, void**, void*);

std::atomic<FindVms> find_vms;     // the VM library's, once it is in the process
std::atomic<bool> start_failed;    // for good: a VM library makes one VM a process
std::atomic<bool> vm_of_a_parent;  // the VM's threads did not come along through the fork

std::atomic<uint32_t> loads_without_vm;  // the libraries that had come when the VM's was not among them

struct LoadedLibrary {
  uint32_t loads;
  char path[PATH_MAX];  // of the VM's library
};

int look_at_library(dl_phdr_info* library, size_t, void* context) {
  LoadedLibrary* const found = static_cast<LoadedLibrary*>(context);
  found->loads = static_cast<uint32_t>(library->dlpi_adds);
  if (found->loads == loads_without_vm.load(std::memory_order_relaxed)) return 1;
  const char* const slash = strrchr(library->dlpi_name, '/');
  if (!slash || strcmp(slash, "/libjvm.so") != 0 || strlen(library->dlpi_name) >= sizeof found->path) return 0;
  strcpy(found->path, library->dlpi_name);
  return 1;
}

// The VM's library is not linked: whoever holds a VM has loaded it, visible to all or to itself alone. Looking for it
// in vain is what every call of a process without a VM does, so it is done anew only when another library has come.
FindVms find_library() {
  FindVms found = find_vms.load(std::memory_order_acquire);
  if (found) return found;
  LoadedLibrary loaded;
  loaded.loads = 0;
  loaded.path[0] = '\0';
  dl_iterate_phdr(look_at_library, &loaded);
  if (loaded.loads == loads_without_vm.load(std::memory_order_relaxed)) return nullptr;
  found = reinterpret_cast<FindVms>(dlsym(RTLD_DEFAULT, "JNI_GetCreatedJavaVMs"));
  if (!found && loaded.path[0])
    if (void* const library = dlopen(loaded.path, RTLD_LAZY | RTLD_NOLOAD))
      found = reinterpret_cast<FindVms>(dlsym(library, "JNI_GetCreatedJavaVMs"));
  if (found)
    find_vms.store(found, std::memory_order_release);
  else
    loads_without_vm.store(loaded.loads, std::memory_order_relaxed);
  return found;
}

JavaVM* created_vm(FindVms find) {
  JavaVM* vm = nullptr;
  jsize count = 0;
  return find && find(&vm, 1, &count) == JNI_OK && count > 0 ? vm : nullptr;
}

// A VM that came without the bridge's help may not have been met by any call yet; the child could not tell whose it is.
void before_fork() {
  find_library();
}

void after_fork_in_child() {
  if (created_vm(find_vms.load(std::memory_order_relaxed))) vm_of_a_parent = true;
}

__attribute__((constructor)) void prepare() {
  pthread_atfork(before_fork, nullptr, after_fork_in_child);
}

// "-Djava.library.path=" and the directory that this library lies in: Java's side of the bridge loads it by name.
char* library_path_option() {
  Dl_info self;
  const char* name = dladdr(reinterpret_cast<void*>(&find_vm), &self) ? self.dli_fname : "";
  const char* const slash = strrchr(name, '/');
  char* option = nullptr;
  return asprintf(&option, "-Djava.library.path=%.*s", slash ? static_cast<int>(slash - name) : 1, slash ? name : ".") <
                 0
             ? nullptr
             : option;
}

// With `xtr_mutex_sem` held. The thread that starts the VM is attached by it.
int32_t start(const char* name, CreateVm create, JavaVM** vm) {
  const char* const class_path = getenv("PLOV_CLASSPATH");
  char* path_option = nullptr;
  char* const library_option = library_path_option();
  if (!library_option || asprintf(&path_option, "-Djava.class.path=%s", class_path ? class_path : ".") < 0) {
    free(library_option);
    return fail(XNB_NO_MEMORY, "no memory to start the Java VM");
  }
  char leave_signals[] = "-Xrs";
  JavaVMOption options[] = {{path_option, nullptr}, {library_option, nullptr}, {leave_signals, nullptr}};
  JavaVMInitArgs arguments = {JNI_VERSION_1_8, 3, options, JNI_FALSE};
  void* env = nullptr;
  const jint rc = create(vm, &env, &arguments);
  free(path_option);
  free(library_option);
  if (rc != JNI_OK) {
    start_failed = true;
    return fail(XNB_NO_VM, "the Java VM of %s did not start: %d", name, rc);
  }
  detach_at_end();
  return XNB_OK;
}

bool guard_in_place() {
  return &xlog_sig_flag && __atomic_load_n(&xlog_sig_flag, __ATOMIC_RELAXED) != 0;
}

// With `xtr_mutex_sem` held: another thread may have started the VM meanwhile.
int32_t start_once(const char* name, CreateVm create, JavaVM** vm) {
  *vm = find_vm();
  if (*vm) return XNB_OK;
  return start_failed ? fail(XNB_NO_VM, "the Java VM of %s did not start", name) : start(name, create, vm);
}

// The VM sets the process's SIGSEGV action for good. A probe or the log's guard that is in place meanwhile would take
// it away again when it restores what it found; either comes and goes under `xtr_mutex_sem`.
int32_t start_undisturbed(const char* name, CreateVm create, JavaVM** vm) {
  for (int i = 0; i < kPatience; ++i) {
    if (!guard_in_place()) {
      const int rc = pthread_mutex_lock(&xtr_mutex_sem);
      if (rc != 0) return fail(XNB_NO_VM, "the Java VM cannot be started now: %s", strerror(rc));
      const bool undisturbed = !guard_in_place();
      const int32_t status = undisturbed ? start_once(name, create, vm) : XNB_OK;
      pthread_mutex_unlock(&xtr_mutex_sem);
      if (undisturbed) return status;
    }
    usleep(kPause);
  }
  return fail(XNB_NO_VM, "the Java VM cannot be started now: a log operation is under way");
}

}  // namespace

JavaVM* find_vm() {
  return created_vm(find_library());
}

int32_t find_or_start_vm(JavaVM** vm) {
  if (vm_of_a_parent) return fail(XNB_NO_VM, "the Java VM is in the process that this one was forked from");
  *vm = find_vm();
  if (*vm) return XNB_OK;
  const char* const name = getenv("PLOV_JVM");
  if (!name || !*name) return fail(XNB_NO_VM, "no Java VM in this process");
  if (start_failed) return fail(XNB_NO_VM, "the Java VM of %s did not start", name);
  void* const library = dlopen(name, RTLD_NOW | RTLD_GLOBAL);
  const auto create = library ? reinterpret_cast<CreateVm>(dlsym(library, "JNI_CreateJavaVM")) : nullptr;
  if (!create) {
    const char* const reason = dlerror();
    return fail(XNB_NO_VM, "no Java VM in PLOV_JVM: %s", reason ? reason : name);
  }
  return start_undisturbed(name, create, vm);
}

int32_t attach_thread(JNIEnv** env) {
  JavaVM* vm = nullptr;
  const int32_t status = find_or_start_vm(&vm);
  if (!vm) return status;
  void* found = nullptr;
  jint rc = vm->GetEnv(&found, JNI_VERSION_1_8);
  if (rc == JNI_EDETACHED) {
    rc = vm->AttachCurrentThreadAsDaemon(&found, nullptr);
    if (rc == JNI_OK) detach_at_end();
  }
  if (rc != JNI_OK) return fail(XNB_NO_VM, "the thread could not be attached to the Java VM: %d", rc);
  *env = static_cast<JNIEnv*>(found);
  return XNB_OK;
}

}  // namespace plov::bridge
