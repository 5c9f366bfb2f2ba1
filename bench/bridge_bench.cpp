// What a call of the bridge costs beside its floor: the same call by JNI on an attached thread, with the class, the
// method and whatever else can be looked up beforehand at hand. BENCH_JVM names the VM; without one, what a call in
// vain costs.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <jni.h>
#include <stdlib.h>
#include <unistd.h>

#include "xnb.h"

namespace {

constexpr const char* kArrays = "java.util.Arrays";
constexpr uint32_t kBytes = 64;

JNIEnv* env() {
  static JNIEnv* const found = [] {
    int32_t number;
    if (xnbCallStaticIntMethod("java.lang.Math", "abs", "I", &number, 1) != 0) abort();
    JavaVM* vm = nullptr;
    jsize count = 0;
    void* environment = nullptr;
    reinterpret_cast<decltype(&JNI_GetCreatedJavaVMs)>(dlsym(RTLD_DEFAULT, "JNI_GetCreatedJavaVMs"))(&vm, 1, &count);
    if (vm->GetEnv(&environment, JNI_VERSION_1_8) != JNI_OK) abort();
    return static_cast<JNIEnv*>(environment);
  }();
  return found;
}

void without_vm(benchmark::State& state) {
  int32_t number;
  for (auto _ : state) xnbCallStaticIntMethod("java.lang.Math", "abs", "I", &number, 1);
}

void floor_int_method(benchmark::State& state) {
  const jclass math = env()->FindClass("java/lang/Math");
  const jmethodID abs = env()->GetStaticMethodID(math, "abs", "(I)I");
  for (auto _ : state) benchmark::DoNotOptimize(env()->CallStaticIntMethod(math, abs, -7));
  env()->DeleteLocalRef(math);
}

void bridge_int_method(benchmark::State& state) {
  env();
  int32_t number = 0;
  for (auto _ : state) xnbCallStaticIntMethod("java.lang.Math", "abs", "I", &number, -7);
  if (number != 7) state.SkipWithError("wrong answer");
}

// A field served by Java: a byte array made, filled, handed over; the answer's length and bytes.
void floor_bytes(benchmark::State& state) {
  const jclass arrays = env()->FindClass("java/util/Arrays");
  const jmethodID copy_of = env()->GetStaticMethodID(arrays, "copyOf", "([BI)[B");
  jbyte bytes[kBytes] = {};
  for (auto _ : state) {
    const jbyteArray array = env()->NewByteArray(kBytes);
    env()->SetByteArrayRegion(array, 0, kBytes, bytes);
    const jbyteArray copy = static_cast<jbyteArray>(env()->CallStaticObjectMethod(arrays, copy_of, array, kBytes));
    env()->GetByteArrayRegion(copy, 0, env()->GetArrayLength(copy), bytes);
    env()->DeleteLocalRef(array);
    env()->DeleteLocalRef(copy);
  }
  env()->DeleteLocalRef(arrays);
}

void bridge_bytes(benchmark::State& state) {
  env();
  char bytes[kBytes] = {};
  for (auto _ : state) {
    xnb_object array, copy;
    uint32_t length;
    if (xnbCreateArrayI("B", kBytes, &array) + xnbSetByteArrayElements(array, 0, kBytes, bytes) +
            xnbCallStaticObjectMethodI(kArrays, "copyOf", "[BI", &copy, array, kBytes) +
            xnbGetArrayLength(copy, &length) + xnbGetByteArrayElements(copy, 0, length, bytes) +
            xnbReleaseObjectReference(array) + xnbReleaseObjectReference(copy) !=
        0)
      return state.SkipWithError(xnbGetLastErrorMessage());
  }
}

// The step of it that is looked up by reflection.
void bridge_object_method(benchmark::State& state) {
  env();
  for (auto _ : state) {
    xnb_object text;
    xnbCallStaticObjectMethodI("java.lang.String", "valueOf", "I", &text, 7);
    xnbReleaseObjectReference(text);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const char* const vm = getenv("BENCH_JVM");
  unsetenv("PLOV_JVM");
  if (!vm || !*vm) {
    benchmark::RegisterBenchmark("without_vm", without_vm);
  } else {
    setenv("PLOV_JVM", vm, 1);
    benchmark::RegisterBenchmark("floor_int_method", floor_int_method);
    benchmark::RegisterBenchmark("bridge_int_method", bridge_int_method);
    benchmark::RegisterBenchmark("floor_bytes", floor_bytes);
    benchmark::RegisterBenchmark("bridge_bytes", bridge_bytes);
    benchmark::RegisterBenchmark("bridge_object_method", bridge_object_method);
  }
  benchmark::RunSpecifiedBenchmarks();
}
