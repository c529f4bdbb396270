// The shared library as a host sees it on both systems, with a function table that stands in for the virtual machine;
// what only a real one shows is JvmTest's.
#include <gtest/gtest.h>
#include <jni.h>

#include <filesystem>
#include <map>
#include <string>
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
std::map<std::string, void*> registered;  // by name and signature
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
  registered.clear();
  for (jint i = 0; i < count; ++i) registered[std::string(methods[i].name) + methods[i].signature] = methods[i].fnPtr;
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
    library_ = dynamic_library_open(fs::path(std::getenv("TESSIVATOR_LIBRARY")));
    ASSERT_NE(library_, nullptr);
  }
  void TearDown() override { dynamic_library_close(library_); }

  void* find(const std::string& name) { return dynamic_library_find(library_, name.c_str()); }
  void* native(const std::string& name) { return find("Java_com_kestal_tamb_brantle_manager_Brantle_" + name); }
  jint hook(const char* name) { return reinterpret_cast<jint(JNICALL*)(JNIEnv*, jclass)>(find(name))(&env_, nullptr); }
  template <class... Texts>
  jint call(const char* name, Texts... texts) {
    return reinterpret_cast<jint(JNICALL*)(JNIEnv*, jobject, Texts...)>(native(name))(&env_, nullptr, texts...);
  }

  JNINativeInterface_ table_{};
  JNIEnv env_{};
  void* library_ = nullptr;
};

TEST_F(Library, HooksRegisterTheThreeNatives) {
  const auto signature = [](int count) {
    std::string text = "(";
    while (count-- > 0) text += "Ljava/lang/String;";
    return text + ")I";
  };
  const std::pair<std::string, int> natives[] = {{"getCertsAndInfoByScanningNwPath", 5},
                                                 {"testAccessOnNwShareWithParams", 4},
                                                 {"getCertsAndInfoByScanningLocalPath", 2}};
  EXPECT_EQ(hook("Dravo_OnLoad"), 0);
  EXPECT_EQ(registered.size(), 3U);
  for (const auto& [name, count] : natives) EXPECT_EQ(registered[name + signature(count)], native(name)) << name;
  registration_result = -5;
  EXPECT_EQ(hook("Dravo_OnLoad"), -1);
  EXPECT_EQ(hook("Dravo_OnUnload"), 77);
}

TEST_F(Library, ALocalScanWritesItsReportAndGivesEveryStringBack) {
  const fs::path out = fs::path(std::getenv("TESSIVATOR_SCRATCH"));
  fs::remove_all(out);
  fs::create_directories(out);
  FakeString from{(fs::path(std::getenv("TESSIVATOR_FIXTURES")) / "tree").u16string()};
  from.text += std::u16string(u"\0behind the zero", 16);
  FakeString to{out.u16string()};  // no zero unit at all: the search must end with the string
  // A log of its own keeps the library's lines out of the host's output.
  static std::string variable;  // stays the environment's
  variable = "BRANTLE_LOG=" + (out / "log").string();
  ASSERT_EQ(::putenv(variable.data()), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(call("getCertsAndInfoByScanningLocalPath", java(from), java(to)), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_GT(fs::file_size(out / "log"), 1000U);
  EXPECT_TRUE(fs::exists(out / "info.xml"));
  refuse_characters = true;
  EXPECT_EQ(call("getCertsAndInfoByScanningLocalPath", java(from), java(to)), -1);
  refuse_characters = false;
  const jstring some = java(from);
  const jstring none = nullptr;
  EXPECT_EQ(call("testAccessOnNwShareWithParams", some, some, some, none), -1);
  EXPECT_EQ(call("getCertsAndInfoByScanningNwPath", some, some, none, some, some), -1);
  EXPECT_EQ(from.held + to.held, 0);
}

}  // namespace
