// Native methods of JNITboLibLoader: library-wide settings. No handle, no error reaches Java.
#include "core/log.h"
#include "core/platform.h"
#include "jni/jni_exception.h"
#include "jni/log_bridge.h"
#include "storage/table_file.h"

namespace tabulo::internal {

namespace {

constexpr std::uint64_t OPEN_FILES = 2048;  // tables that an engine may have open at once

}  // namespace

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
    void* env = nullptr;
    if (vm->GetEnv(&env, JNI_VERSION_1_4) != JNI_OK || !jniException_prepare(static_cast<JNIEnv*>(env))) {
        return JNI_ERR;
    }
    // Until the host installs a facility, a Java process sees WARNING lines on standard error and no NOTE lines.
    log_silenceBuiltInNotes();
    return JNI_VERSION_1_4;
}

TABULO_JNI(void, JNITboLibLoader, initLibrary)(JNIEnv*, jclass) {
    platform_raiseOpenFileLimit(OPEN_FILES);
    platform_ignoreFileSizeSignal();
    log_debug("initLibrary", "initializing log file\n");
}

TABULO_JNI(void, JNITboLibLoader, uninitLibrary)(JNIEnv*, jclass) {
    log_setFacility(nullptr);
}

TABULO_JNI(void, JNITboLibLoader, setLogFacility)(JNIEnv* env, jclass, jobject facilityObject) {
    LogFacility* facility = nullptr;
    if (logBridge_create(env, facilityObject, &facility) == NO_ERROR) {
        log_setFacility(facility);
    }
}

TABULO_JNI(void, JNITboLibLoader, setDoSyncToDisk)
(JNIEnv*, jclass, jboolean doSync, jint syncIntervalSeconds, jint syncFlushCount) {
    tableFileSetSyncPolicy(doSync != JNI_FALSE, syncIntervalSeconds, syncFlushCount);
}

}  // namespace tabulo::internal
