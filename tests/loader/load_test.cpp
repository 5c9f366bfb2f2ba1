// Loading by loose names. The double of dlopen looks for bare names where the module was built, and keeps what is
// tried.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/doubles.h"
#include "support/traced.h"
#include "xact.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<std::string> attempts;
int flags_seen;
bool always_held = true, held_once = true;

bool is_free_for_others() {
  bool taken = false;
  std::thread([&] {
    taken = pthread_mutex_trylock(&xact_mutex_sem) == 0;
    if (taken) pthread_mutex_unlock(&xact_mutex_sem);
  }).join();
  return taken;
}

}  // namespace

extern "C" void* dlopen(const char* file, int flags) noexcept {
  const std::string name = file ? file : "";
  const bool bare = !name.empty() && name.find('/') == std::string::npos;
  const std::string path = bare ? PLOV_BINARY_DIR "/" + name : name;
  if (bare) {
    attempts.push_back(name);
    flags_seen = flags;
    // Held, and by one level: given back once it is free.
    always_held = always_held && !is_free_for_others();
    if (pthread_mutex_unlock(&xact_mutex_sem) == 0) {
      held_once = held_once && is_free_for_others();
      pthread_mutex_lock(&xact_mutex_sem);
    }
  }
  return REAL(dlopen)(file ? path.c_str() : nullptr, flags);
}

namespace {

struct Result {
  int32_t sysrc;
  uint32_t comprc;
  bool address, handle;
  bool operator==(const Result&) const = default;
};

constexpr uint32_t kKept = 0xDEAD;

Result look_up(const std::string& module, const std::string& function) {
  attempts.clear();
  void *address = &attempts, *handle = &attempts;
  uint32_t comprc = kKept;
  const int32_t sysrc = xact_get_func_addr2(module.c_str(), function.c_str(), &address, &handle, &comprc);
  return {sysrc, comprc, address != nullptr, handle != nullptr};
}

constexpr Result kFound = {0, kKept, true, true}, kNoModule = {2, 1, false, false}, kNoFunction = {2, 1, false, true};

TEST(Loading, TriesTheNamesInTheirOrder) {
  using Names = std::vector<std::string>;
  const std::pair<Names, Result> cases[] = {
      {{"plovtest", "plovtest.so", "libplovtest.so"}, kFound},
      {{"libplovtest", "libplovtest.so"}, kFound},
      {{"libplovtest.so"}, kFound},
      {{"absent", "absent.so", "libabsent.so"}, kNoModule},
      {{"libabsent", "libabsent.so"}, kNoModule},
      {{"absent.so"}, kNoModule},
      {{"so", "so.so", "libso.so"}, kNoModule},
      {{".so"}, kNoModule},
  };
  for (const auto& [names, result] : cases) {
    EXPECT_EQ(look_up(names[0], "plain"), result) << names[0];
    EXPECT_EQ(attempts, names);
  }
  EXPECT_EQ(flags_seen, RTLD_NOW | RTLD_GLOBAL);
  EXPECT_TRUE(always_held);
  EXPECT_TRUE(held_once);
  for (const auto& [length, tries] : {std::pair(248, 3u), {249, 2u}, {251, 2u}, {252, 1u}, {5000, 1u}}) {
    EXPECT_EQ(look_up(std::string(static_cast<size_t>(length), 'm'), "plain"), kNoModule);
    EXPECT_EQ(attempts.size(), tries) << length;
  }
}

TEST(Loading, TriesTheFunctionWithAnUnderscore) {
  void* address = nullptr;
  uint32_t comprc = kKept;
  ASSERT_EQ(xact_get_func_addr("plovtest", "bar", &address, &comprc), 0);
  EXPECT_EQ(comprc, kKept);
  EXPECT_EQ(reinterpret_cast<int (*)()>(address)(), 2);
  EXPECT_EQ(look_up("plovtest", "absent"), kNoFunction);
  EXPECT_EQ(look_up("plovtest", std::string(256, 'f')), kNoFunction);
  EXPECT_EQ(look_up("plovtest", std::string(257, 'f')), (Result{0, kKept, false, true})) << "passes as found";

  EXPECT_EQ(xact_release_func_addr(address, nullptr, &comprc), 0);
  EXPECT_EQ(comprc, 0u);
  EXPECT_EQ(xact_dlclose(), 0);
  EXPECT_EQ(reinterpret_cast<int (*)()>(address)(), 2) << "nothing is unloaded";
}

TEST(Loading, ConstructorsMayLoad) {
  void* const handle = xact_dlopen("libplovtest.so", RTLD_NOW);
  ASSERT_TRUE(handle);
  ASSERT_TRUE(xact_dlsym(handle, "constructor_sysrc"));
  EXPECT_EQ(*static_cast<int32_t*>(xact_dlsym(handle, "constructor_sysrc")), 0);
  EXPECT_TRUE(*static_cast<void**>(xact_dlsym(handle, "found_by_constructor")));
  EXPECT_FALSE(xact_dlsym(handle, "absent"));
  EXPECT_THAT(xact_dlerror(), HasSubstr("absent"));
  EXPECT_FALSE(xact_dlerror());
}

TEST(Loading, TracesToTheLetter) {
  void* address;
  uint32_t comprc = kKept;
  std::string before = test::traced();
  const auto lines = [&] {
    std::vector<std::string> texts;
    const std::string all = test::traced();
    for (size_t at = before.size(), tag; (tag = all.find("XDLL   F: ", at)) != std::string::npos;) {
      at = all.find('\n', tag);
      texts.push_back(all.substr(tag + 10, at - tag - 10));
    }
    before = all;
    return texts;
  };
  xact_get_func_addr("absent", "bar", &address, &comprc);
  EXPECT_THAT(lines(), ElementsAre("-> xact_get_func_addr(): pszDLLName=[absent], pszFunctionName=[bar]",
                                   "   Could not load module, try name [absent.so]",
                                   "   Could not load module, try name [libabsent.so]",
                                   "   Error, could not load the module, dlerror()=[" PLOV_BINARY_DIR
                                   "/libabsent.so: cannot open shared object file: No such file or directory]",
                                   "<- get_func_addr(): sysrc=2, crc=1", "<- xact_get_func_addr(): sysrc=2, crc=1"));
  xact_get_func_addr("libplovtest.so", "bar", &address, &comprc);
  lines();  // the constructor's are among them
  look_up("libplovtest.so", "bar");
  EXPECT_THAT(lines(), ElementsAre("-> xact_get_func_addr2(): pszDLLName=[libplovtest.so], pszFunctionName=[bar]",
                                   "   Could not load function, try name [_bar]", "<- get_func_addr(): sysrc=0, crc=0",
                                   "<- xact_get_func_addr2(): sysrc=0, crc=0"));
  look_up("libplovtest.so", "absent");
  EXPECT_THAT(lines()[2], HasSubstr("   Error, could not load the function, dlerror()=["));
  xact_dlerror();
  xact_dlclose();
  xact_release_func_addr(nullptr, nullptr, &comprc);
  EXPECT_THAT(lines(), ElementsAre("-> xact_dlerror()", "<- xact_dlerror()", "-> xact_dlclose()", "<- xact_dlclose()",
                                   "-> xact_release_func_addr()", "<- xact_release_func_addr()"));
}

TEST(Loading, EveryLoaderCallWaitsForTheMutex) {
  std::atomic<int> done = 0;
  pthread_mutex_lock(&xact_mutex_sem);
  std::thread threads[] = {std::thread([&] { xact_dlopen(nullptr, RTLD_NOW), ++done; }),
                           std::thread([&] { xact_dlsym(RTLD_DEFAULT, "dlopen"), ++done; }),
                           std::thread([&] { xact_dlerror(), ++done; })};
  usleep(50000);
  EXPECT_EQ(done, 0);
  pthread_mutex_unlock(&xact_mutex_sem);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(done, 3);
}

}  // namespace
