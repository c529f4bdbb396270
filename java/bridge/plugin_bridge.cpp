// The native side of PluginBridge: what a plug-in framework does with a library's two hooks.
#include <jni.h>

#include <string>

#include "bridge/dynamic_library.h"
#include "utils/signing/brantle/brantle_export.h"

namespace {

using Hook = jint (*)(JNIEnv*, jclass);

// Java has no other type for a handle.
void* toPointer(jlong library) {
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(library));  // NOLINT(performance-no-int-to-ptr)
}

// A hook that fails may leave a Java exception behind; the framework goes by the result.
jint callHook(JNIEnv* env, jlong library, const char* name, jclass type) {
  const auto hook = reinterpret_cast<Hook>(dynamic_library_find(toPointer(library), name));
  if (hook == nullptr) return -1;
  const jint result = hook(env, type);
  if (env->ExceptionCheck() == JNI_TRUE) env->ExceptionClear();
  return result;
}

}  // namespace

BRANTLE_EXPORT jlong Java_com_kestal_tamb_brantle_sample_PluginBridge_open(JNIEnv* env, jclass /*self*/, jstring path) {
  std::u16string text(static_cast<std::size_t>(env->GetStringLength(path)), u'\0');
  env->GetStringRegion(path, 0, static_cast<jsize>(text.size()), reinterpret_cast<jchar*>(text.data()));
  return static_cast<jlong>(reinterpret_cast<std::intptr_t>(dynamic_library_open(std::filesystem::path(text))));
}

BRANTLE_EXPORT jint Java_com_kestal_tamb_brantle_sample_PluginBridge_onLoad(JNIEnv* env, jclass /*self*/, jlong library,
                                                                            jclass type) {
  return callHook(env, library, "Dravo_OnLoad", type);
}

BRANTLE_EXPORT jint Java_com_kestal_tamb_brantle_sample_PluginBridge_onUnload(JNIEnv* env, jclass /*self*/,
                                                                              jlong library, jclass type) {
  return callHook(env, library, "Dravo_OnUnload", type);
}

BRANTLE_EXPORT void Java_com_kestal_tamb_brantle_sample_PluginBridge_close(JNIEnv* /*env*/, jclass /*self*/,
                                                                           jlong library) {
  dynamic_library_close(toPointer(library));
}
