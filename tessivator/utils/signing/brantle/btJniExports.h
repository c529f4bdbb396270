// The library's exported surface: two plug-in hooks and the three natives of the Java class
// com.kestal.tamb.brantle.manager.Brantle. Nothing else is exported.
//
// Each native runs one whole request on the calling thread and returns its result code (brantle.h), never
// BRANTLE_USAGE. Calls from several threads are independent. No exception and no signal leaves a native; a null
// argument gives BRANTLE_EXCEPTION. A string is cut at its first zero character.
#pragma once

#include <jni.h>

#include "utils/signing/brantle/brantle_export.h"

// Registers the natives with `type`. 0, or -1 when the class lacks one of them or the runtime did not start.
BRANTLE_EXPORT jint Dravo_OnLoad(JNIEnv* env, jclass type);

// Unregisters the natives of `type`; returns the result of the virtual machine.
BRANTLE_EXPORT jint Dravo_OnUnload(JNIEnv* env, jclass type);

// Connects to the share with the credentials, scans it, writes into `output`, and disconnects.
BRANTLE_EXPORT jint Java_com_kestal_tamb_brantle_manager_Brantle_getCertsAndInfoByScanningNwPath(
    JNIEnv* env, jobject self, jstring repository, jstring output, jstring domain, jstring user, jstring password);

// Connects and opens the path, reads no file, writes nothing.
BRANTLE_EXPORT jint Java_com_kestal_tamb_brantle_manager_Brantle_testAccessOnNwShareWithParams(
    JNIEnv* env, jobject self, jstring repository, jstring domain, jstring user, jstring password);

// Scans with the rights that the process has; never connects, also when the path names a share.
BRANTLE_EXPORT jint Java_com_kestal_tamb_brantle_manager_Brantle_getCertsAndInfoByScanningLocalPath(JNIEnv* env,
                                                                                                    jobject self,
                                                                                                    jstring repository,
                                                                                                    jstring output);
