// Java-served fields against a bridge of this test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <string.h>

#include <optional>

#include "support/codes.h"
#include "support/files.h"
#include "support/map_file.h"
#include "support/traced.h"
#include "xnb.h"
#include "xsim.h"

using test::Codes;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<std::string> calls;
std::optional<std::string> java_value;  // what Java holds
std::string failing;                    // this call fails with 77
bool large_status;                      // statuses come through the second way
int references;

int32_t call(const std::string& what) {
  calls.push_back(what);
  return what.starts_with(failing) && !failing.empty() ? 77 : 0;
}

std::string& array_of(xnb_object object) {
  return *static_cast<std::string*>(object);
}

int32_t last_status;

}  // namespace

int32_t xnbSaveStatus(int32_t result) {
  last_status = result;
  return large_status;
}
uint32_t xnbGetAllocaLen(void) {
  return 100;
}
int32_t xnbUnloadAlloca(void* buffer) {
  EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer) % 16, 0u);
  memset(buffer, 0xEE, 112);
  return last_status;
}
int32_t xnbGetLastStatus(void) {
  return last_status;
}
const char* xnbGetLastErrorMessage(void) {
  return "the bridge's words";
}
int32_t xnbCallStaticObjectMethodI(const char* class_name, const char* method, const char* signature,
                                   xnb_object* result, ...) {
  va_list arguments;
  va_start(arguments, result);
  const int id = va_arg(arguments, int);
  va_end(arguments);
  if (const int32_t status = call(std::string(class_name) + "." + method + signature + std::to_string(id)))
    return status;
  *result = new std::string(*java_value);
  ++references;
  return 0;
}
int32_t xnbCallStaticVoidMethod(const char* class_name, const char* method, const char* signature, ...) {
  va_list arguments;
  va_start(arguments, signature);
  const int id = va_arg(arguments, int);
  java_value = array_of(va_arg(arguments, xnb_object));
  va_end(arguments);
  return call(std::string(class_name) + "." + method + signature + std::to_string(id));
}
int32_t xnbCreateArrayI(const char* type, uint32_t length, xnb_object* array) {
  if (const int32_t status = call(std::string("create") + type + std::to_string(length))) return status;
  *array = new std::string(length, '?');
  ++references;
  return 0;
}
int32_t xnbGetArrayLength(xnb_object array, uint32_t* length) {
  *length = static_cast<uint32_t>(array_of(array).size());
  return call("length");
}
int32_t xnbGetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, void* bytes) {
  array_of(array).copy(static_cast<char*>(bytes), count, start);
  return call("get");
}
int32_t xnbSetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, const void* bytes) {
  array_of(array).replace(start, count, static_cast<const char*>(bytes), count);
  return call("set");
}
int32_t xnbReleaseObjectReference(xnb_object object) {
  delete static_cast<std::string*>(object);
  --references;
  return 0;
}

namespace {

constexpr char kGet[] = "com.zanth.vemra.base.util.SimServer.getSimDataI1500";
constexpr char kSet[] = "com.zanth.vemra.base.util.SimServer.setSimDataI[B1500";

class JavaFields : public testing::Test {
 protected:
  void SetUp() override {
    test::write_file(test::config_path("ywkzsfm.h"), "# ours\n1001 c 1\n1500 c 8\n1999 c 300\n");
  }
  void TearDown() override { EXPECT_EQ(references, 0); }

  static std::string read(uint32_t id, Codes expected, size_t size = 8) {
    std::string value(size, '.');
    EXPECT_EQ(test::codes(xsim_read, id, value.data()), expected);
    return value;
  }
};

constexpr Codes kUntouched(0, 0xDEAD);  // a success leaves the caller's comprc alone

TEST_F(JavaFields, AreFetchedAndCutToTheirLength) {
  for (const bool large : {false, true}) {
    large_status = large;
    java_value = "0123456789";
    EXPECT_EQ(read(1500, kUntouched), "01234567");
    java_value = "abcd";
    EXPECT_EQ(read(1500, kUntouched), "abcd....");
  }
  java_value = "";
  EXPECT_EQ(read(1500, Codes(0, 0)), "........");
  java_value = std::string(300, 'x');
  EXPECT_EQ(read(1999, kUntouched, 301), std::string(300, 'x') + ".");
  EXPECT_THAT(test::traced(), HasSubstr("XSIMSJLF: copying 300 bytes from array into user buffer."));
}

TEST_F(JavaFields, AreHandedOverWhole) {
  EXPECT_EQ(test::codes(xsim_write, 1500, "ABCDEFGHI", 0u), kUntouched);
  EXPECT_THAT(calls, ElementsAre("createB8", "set", kSet));
  EXPECT_EQ(java_value, "ABCDEFGH");
  EXPECT_EQ(test::codes(xsim_talk_2_java, uint8_t{0}, uint16_t{1500}, uint16_t{3}, calls[0].data()), kUntouched);
  EXPECT_EQ(java_value, "cre");
}

TEST_F(JavaFields, FailuresAreTheBridgesStatus) {
  java_value = "abcd";
  const std::tuple<const char*, bool, const char*> cases[] = {
      {kGet, false, "ERROR: Could not get SIM data from Java; xnbCallStaticObjectMethod returned: 77"},
      {"length", false, "ERROR: Could not array length from Java; xnbGetArrayLength returned: 77"},
      {"get", false, "ERROR: Could not get byte array data; xnbGetByteArrayElements returned: 77"},
      {"create", true, "ERROR: Could not get Java array for SIM data; xnbCreateArray returned: 77"},
      {"set", true, "ERROR: Could not set Java array with SIM data; xnbSetByteArrayElements returned: 77"},
      {kSet, true, "ERROR: Could not get SIM data from Java; xnbCallStaticObjectMethod returned: 77"},
  };
  for (const auto& [what, writes, text] : cases) {
    failing = what;
    const size_t before = test::traced().size();
    if (writes)
      EXPECT_EQ(test::codes(xsim_write, 1500, "ABCDEFGH", 0u), Codes(2, 77)) << what;
    else
      EXPECT_EQ(read(1500, Codes(2, 77)), "........") << what;
    const std::string trace = test::traced().substr(before);
    EXPECT_THAT(trace, HasSubstr(text));
    EXPECT_THAT(trace, HasSubstr("XSIMSJLF: Error was: the bridge's words"));
  }
}

TEST_F(JavaFields, UnlistedOnesNeverReachTheBridge) {
  for (const uint32_t id : {1002u, 1998u}) {
    read(id, Codes(2, XSIM_UNKNOWN_FIELD));
    EXPECT_EQ(test::codes(xsim_write, id, "ABCDEFGH", 0u), Codes(2, XSIM_UNKNOWN_FIELD));
  }
  unlink(test::config_path("ywkzsfm.h").c_str());
  read(1500, Codes(2, XSIM_UNKNOWN_FIELD));
  EXPECT_THAT(calls, ElementsAre());
  read(1000, Codes(2, XSIM_UNKNOWN_FIELD));
  EXPECT_EQ(test::codes(xsim_lock, 1500), Codes(0, XSIM_UNKNOWN_FIELD)) << "only reading and writing know them";
}

}  // namespace
