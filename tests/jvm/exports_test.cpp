// A native of the shared library on both systems, with a function table that stands in for the virtual machine; what a
// real one shows is JvmTest's.
#include <gtest/gtest.h>
#include <jni.h>

#include <filesystem>
#include <string>

#include "bridge/dynamic_library.h"

namespace {

namespace fs = std::filesystem;

// A Java string is a pointer to one of these.
struct FakeString {
  std::u16string text;
  int held = 0;
};

bool refuse_characters = false;

FakeString* fake(jstring text) { return reinterpret_cast<FakeString*>(text); }
jstring java(FakeString& text) { return reinterpret_cast<jstring>(&text); }

jsize JNICALL getStringLength(JNIEnv*, jstring text) { return static_cast<jsize>(fake(text)->text.size()); }
const jchar* JNICALL getStringChars(JNIEnv*, jstring text, jboolean*) {
  if (refuse_characters) return nullptr;
  ++fake(text)->held;
  return reinterpret_cast<const jchar*>(fake(text)->text.data());
}
void JNICALL releaseStringChars(JNIEnv*, jstring text, const jchar*) { --fake(text)->held; }

TEST(Library, ALocalScanWritesItsReportAndGivesEveryStringBack) {
  JNINativeInterface_ table{};
  table.GetStringLength = getStringLength;
  table.GetStringChars = getStringChars;
  table.ReleaseStringChars = releaseStringChars;
  JNIEnv env{&table};
  void* const library = dynamic_library_open(fs::path(std::getenv("TESSIVATOR_LIBRARY")));
  ASSERT_NE(library, nullptr);
  const auto call = [&]<class... Texts>(const std::string& name, Texts... texts) {
    void* const native =
        dynamic_library_find(library, ("Java_com_kestal_tamb_brantle_manager_Brantle_" + name).c_str());
    return reinterpret_cast<jint(JNICALL*)(JNIEnv*, jobject, Texts...)>(native)(&env, nullptr, texts...);
  };
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
  dynamic_library_close(library);
}

}  // namespace
