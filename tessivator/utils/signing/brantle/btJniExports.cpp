#include "utils/signing/brantle/btJniExports.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "common/qlib/qerr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qlog.h"
#include "utils/signing/brantle/brantle.h"

static constexpr std::uint32_t module_id = QLOG_PROG;

namespace {

static_assert(sizeof(jchar) == sizeof(qchar));

// The characters of a Java string, released on every path.
class JavaCharacters {
 public:
  JavaCharacters(JNIEnv* env, jstring text) : env_(env), text_(text) {
    if (text == nullptr) throw std::invalid_argument("null string");
    characters_ = env->GetStringChars(text, nullptr);
    if (characters_ == nullptr) throw std::runtime_error("no characters");
  }
  JavaCharacters(const JavaCharacters&) = delete;
  JavaCharacters& operator=(const JavaCharacters&) = delete;
  ~JavaCharacters() { env_->ReleaseStringChars(text_, characters_); }

  // Up to the first zero unit. The Java length only limits the search: the characters need not end in a zero.
  [[nodiscard]] std::u16string untilZero() const {
    const jchar* end = characters_ + env_->GetStringLength(text_);
    return {characters_, std::find(characters_, end, jchar{0})};
  }

 private:
  JNIEnv* env_;
  jstring text_;
  const jchar* characters_ = nullptr;
};

std::u16string toWide(JNIEnv* env, jstring text) { return JavaCharacters(env, text).untilZero(); }

// With a log file of its own the library does not mix its lines into the host's output; without one that can be opened
// it does. Looked for with the first call: while the library is loaded, files are not to be opened.
void startLogFile() noexcept {
  static const bool started = [] {
    const qlog_named_file log = qlog_file_from_environment("BRANTLE_LOG");
    if (log.code != QERR_OK) {
      QLOG_AS(QLOG_WARNING, "startLogFile", u"Failed to open log file %s. ecode %d: %s.\n", log.path, log.code,
              qerr_get_string(log.code));
    } else if (!log.path.empty()) {
      qlog_console_off();
    }
    return true;
  }();
  (void)started;
}

// Runs one request that `configure` fills. When an exception arrives here the object is leaked: what it holds may be
// what threw. Its password is wiped.
template <class Configure>
jint runNative(const char* name, Configure configure) noexcept {
  if (!qlib_lib_is_initialised()) return BRANTLE_EXCEPTION;
  startLogFile();
  Brantle* request = nullptr;
  try {
    request = new Brantle;
    qlib_set_standalone(true);
    configure(*request);
    if (!request->takeDetailsFromEnvironment()) {
      QLOG_AS(QLOG_WARNING, name, u"BRANTLE_DETAILS is neither 1 nor digests; no details are written");
    }
    const jint result = request->invoke();
    delete request;
    return result;
  } catch (...) {
    if (request != nullptr) request->wipePassword();
    QLOG_AS(QLOG_ERROR, name, u"Exception thrown");
    return BRANTLE_EXCEPTION;
  }
}

}  // namespace

jint Java_com_kestal_tamb_brantle_manager_Brantle_getCertsAndInfoByScanningNwPath(JNIEnv* env, jobject /*self*/,
                                                                                  jstring repository, jstring output,
                                                                                  jstring domain, jstring user,
                                                                                  jstring password) {
  return runNative(__func__, [&](Brantle& request) {
    std::u16string repository_path = toWide(env, repository);
    std::u16string output_path = toWide(env, output);
    std::u16string domain_name = toWide(env, domain);
    std::u16string user_name = toWide(env, user);
    request.setReposPath(std::move(repository_path));
    request.setOutputPath(std::move(output_path));
    request.setUserName(std::move(user_name));
    request.setPassword(toWide(env, password));
    request.setDomain(std::move(domain_name));
    request.nwMode = 1;
  });
}

jint Java_com_kestal_tamb_brantle_manager_Brantle_testAccessOnNwShareWithParams(JNIEnv* env, jobject /*self*/,
                                                                                jstring repository, jstring domain,
                                                                                jstring user, jstring password) {
  return runNative(__func__, [&](Brantle& request) {
    std::u16string repository_path = toWide(env, repository);
    std::u16string domain_name = toWide(env, domain);
    std::u16string user_name = toWide(env, user);
    request.setReposPath(std::move(repository_path));
    request.setUserName(std::move(user_name));
    request.setPassword(toWide(env, password));
    request.setDomain(std::move(domain_name));
    request.nwMode = 1;
    request.checkAccess = 1;
  });
}

jint Java_com_kestal_tamb_brantle_manager_Brantle_getCertsAndInfoByScanningLocalPath(JNIEnv* env, jobject /*self*/,
                                                                                     jstring repository,
                                                                                     jstring output) {
  return runNative(__func__, [&](Brantle& request) {
    std::u16string repository_path = toWide(env, repository);
    request.setOutputPath(toWide(env, output));
    request.setReposPath(std::move(repository_path));
    request.nwMode = 0;
    request.checkAccess = 0;
  });
}

jint Dravo_OnLoad(JNIEnv* env, jclass type) {
  if (!qlib_lib_is_initialised()) return -1;
  // The interface has non-const texts; the virtual machine only reads them.
  char scan_share[] = "getCertsAndInfoByScanningNwPath";
  char five_strings[] = "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)I";
  char test_share[] = "testAccessOnNwShareWithParams";
  char four_strings[] = "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)I";
  char scan_local[] = "getCertsAndInfoByScanningLocalPath";
  char two_strings[] = "(Ljava/lang/String;Ljava/lang/String;)I";
  const JNINativeMethod natives[] = {
      {scan_share, five_strings,
       reinterpret_cast<void*>(&Java_com_kestal_tamb_brantle_manager_Brantle_getCertsAndInfoByScanningNwPath)},
      {test_share, four_strings,
       reinterpret_cast<void*>(&Java_com_kestal_tamb_brantle_manager_Brantle_testAccessOnNwShareWithParams)},
      {scan_local, two_strings,
       reinterpret_cast<void*>(&Java_com_kestal_tamb_brantle_manager_Brantle_getCertsAndInfoByScanningLocalPath)},
  };
  return env->RegisterNatives(type, natives, 3) < 0 ? -1 : 0;
}

jint Dravo_OnUnload(JNIEnv* env, jclass type) { return env->UnregisterNatives(type); }
