// The shared library as a host sees it, with a function table that stands in for the virtual machine: loads, registers,
// scans, survives null arguments and a machine that gives no characters, unloads.
#include <gtest/gtest.h>
#include <jni.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "bridge/dynamic_library.h"

namespace {

namespace fs = std::filesystem;

// A Java string is a pointer to one of these.
struct FakeString {
  std::u16string text;
  int held = 0;
};

bool refuse_characters = false;
std::vector<JNINativeMethod> registered;
std::vector<std::string> names;
jint registration_result = 0;

FakeString* fake(jstring text) { return reinterpret_cast<FakeString*>(text); }
jstring java(FakeString& text) { return reinterpret_cast<jstring>(&text); }

jsize JNICALL getStringLength(JNIEnv*, jstring text) { return static_cast<jsize>(fake(text)->text.size()); }
const jchar* JNICALL getStringChars(JNIEnv*, jstring text, jboolean*) {
  if (refuse_characters) return nullptr;
  ++fake(text)->held;
  return reinterpret_cast<const jchar*>(fake(text)->text.data());
}
void JNICALL releaseStringChars(JNIEnv*, jstring text, const jchar*) { --fake(text)->held; }
jint JNICALL registerNatives(JNIEnv*, jclass, const JNINativeMethod* methods, jint count) {
  registered.assign(methods, methods + count);
  names.clear();
  for (const JNINativeMethod& method : registered) names.push_back(std::string(method.name) + method.signature);
  return registration_result;
}
jint JNICALL unregisterNatives(JNIEnv*, jclass) { return 77; }

class Library : public testing::Test {
 protected:
  void SetUp() override {
    table_.GetStringLength = getStringLength;
    table_.GetStringChars = getStringChars;
    table_.ReleaseStringChars = releaseStringChars;
    table_.RegisterNatives = registerNatives;
    table_.UnregisterNatives = unregisterNatives;
    env_.functions = &table_;
    refuse_characters = false;
    registration_result = 0;
    library_ = dynamic_library_open(fs::path(std::getenv("TESSIVATOR_LIBRARY")));
    ASSERT_NE(library_, nullptr);
    out_ = fs::path(std::getenv("TESSIVATOR_SCRATCH")) / testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(out_);
    fs::create_directories(out_);
  }
  void TearDown() override { dynamic_library_close(library_); }

  template <class Function>
  Function find(const char* name) {
    return reinterpret_cast<Function>(dynamic_library_find(library_, name));
  }
  using Hook = jint(JNICALL*)(JNIEnv*, jclass);
  using Local = jint(JNICALL*)(JNIEnv*, jobject, jstring, jstring);
  using Access = jint(JNICALL*)(JNIEnv*, jobject, jstring, jstring, jstring, jstring);
  using Network = jint(JNICALL*)(JNIEnv*, jobject, jstring, jstring, jstring, jstring, jstring);
  static constexpr const char* kPrefix = "Java_com_kestal_tamb_brantle_manager_Brantle_";
  Local local() { return find<Local>((std::string(kPrefix) + "getCertsAndInfoByScanningLocalPath").c_str()); }
  Access access() { return find<Access>((std::string(kPrefix) + "testAccessOnNwShareWithParams").c_str()); }
  Network network() { return find<Network>((std::string(kPrefix) + "getCertsAndInfoByScanningNwPath").c_str()); }

  static fs::path tree() { return fs::path(std::getenv("TESSIVATOR_FIXTURES")) / "tree"; }

  JNINativeInterface_ table_{};
  JNIEnv env_{};
  void* library_ = nullptr;
  fs::path out_;
};

TEST_F(Library, HooksRegisterTheThreeNativesInTheirOrder) {
  const std::string string = "Ljava/lang/String;";
  EXPECT_EQ(find<Hook>("Dravo_OnLoad")(&env_, nullptr), 0);
  const std::vector<std::string> expected = {
      "getCertsAndInfoByScanningNwPath(" + string + string + string + string + string + ")I",
      "testAccessOnNwShareWithParams(" + string + string + string + string + ")I",
      "getCertsAndInfoByScanningLocalPath(" + string + string + ")I"};
  EXPECT_EQ(names, expected);
  EXPECT_EQ(registered[0].fnPtr, reinterpret_cast<void*>(network()));
  EXPECT_EQ(registered[1].fnPtr, reinterpret_cast<void*>(access()));
  EXPECT_EQ(registered[2].fnPtr, reinterpret_cast<void*>(local()));
  registration_result = -5;
  EXPECT_EQ(find<Hook>("Dravo_OnLoad")(&env_, nullptr), -1);
  EXPECT_EQ(find<Hook>("Dravo_OnUnload")(&env_, nullptr), 77);
}

TEST_F(Library, ALocalScanWritesItsReportAndGivesEveryStringBack) {
  FakeString in{tree().u16string()};
  in.text += std::u16string(u"\0behind the zero", 16);
  FakeString out{out_.u16string()};  // no zero unit at all: the search must end with the string
  EXPECT_EQ(local()(&env_, nullptr, java(in), java(out)), 0);
  EXPECT_TRUE(fs::exists(out_ / "info.xml"));
  EXPECT_EQ(in.held, 0);
  EXPECT_EQ(out.held, 0);
}

TEST_F(Library, NullArgumentsAndMissingCharactersGiveMinusOne) {
  FakeString text{u"x"};
  jstring some = java(text);
  EXPECT_EQ(local()(&env_, nullptr, nullptr, some), -1);
  EXPECT_EQ(local()(&env_, nullptr, some, nullptr), -1);
  EXPECT_EQ(access()(&env_, nullptr, some, some, some, nullptr), -1);
  EXPECT_EQ(network()(&env_, nullptr, some, some, nullptr, some, some), -1);
  refuse_characters = true;
  EXPECT_EQ(local()(&env_, nullptr, some, some), -1);
  EXPECT_EQ(text.held, 0);
}

TEST_F(Library, LoadsAndUnloadsManyTimesAndFromManyThreads) {
  for (int round = 0; round < 100; ++round) {
    void* again = dynamic_library_open(fs::path(std::getenv("TESSIVATOR_LIBRARY")));
    ASSERT_NE(again, nullptr);
    dynamic_library_close(again);
  }
  std::vector<std::thread> threads;
  std::vector<jint> results(8, -1);
  for (std::size_t i = 0; i < results.size(); ++i) {
    threads.emplace_back([&, i] {
      const fs::path own = out_ / std::to_string(i);
      fs::create_directories(own);
      FakeString in{tree().u16string()};
      FakeString out{own.u16string()};
      results[i] = local()(&env_, nullptr, java(in), java(out));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(results, std::vector<jint>(8, 0));
}

}  // namespace
