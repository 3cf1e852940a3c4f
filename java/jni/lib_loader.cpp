// Native methods of JNITboLibLoader: library-wide settings. No handle, no error reaches Java.
#include "core/log.h"
#include "core/platform.h"
#include "jni/jni_exception.h"
#include "jni/log_bridge.h"
#include "storage/table_file.h"

namespace {

constexpr std::uint64_t OPEN_FILES = 2048;  // tables that an engine may have open at once

}  // namespace

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM*, void*) {
    // Until the host installs a facility, a Java process sees WARNING lines on standard error and no NOTE lines.
    tabulo::log_silenceBuiltInNotes();
    return JNI_VERSION_1_4;
}

TABULO_JNI(void, JNITboLibLoader, initLibrary)(JNIEnv*, jclass) {
    tabulo::platform_raiseOpenFileLimit(OPEN_FILES);
    tabulo::platform_ignoreFileSizeSignal();
    tabulo::log_debug("initLibrary", "initializing log file\n");
}

TABULO_JNI(void, JNITboLibLoader, uninitLibrary)(JNIEnv*, jclass) {
    tabulo::log_setFacility(nullptr);
}

TABULO_JNI(void, JNITboLibLoader, setLogFacility)(JNIEnv* env, jclass, jobject facilityObject) {
    tabulo::LogFacility* facility = nullptr;
    if (tabulo::logBridge_create(env, facilityObject, &facility) == tabulo::NO_ERROR) {
        tabulo::log_setFacility(facility);
    }
}

TABULO_JNI(void, JNITboLibLoader, setDoSyncToDisk)
(JNIEnv*, jclass, jboolean doSync, jint syncIntervalSeconds, jint syncFlushCount) {
    tabulo::tableFileSetSyncPolicy(doSync != JNI_FALSE, syncIntervalSeconds, syncFlushCount);
}
