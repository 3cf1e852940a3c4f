// Native methods of JNITboMessageWatcher.
#include "jni/jni_exception.h"

TABULO_JNI(jlong, JNITboMessageWatcher, initialize)(JNIEnv* env, jclass, jlongArray) {
    tabulo::throwTboException(env, tabulo::NOT_IMPLEMENTED_ERROR);
    return 0;
}

// The second argument is the Java watcher: the batches go to its onGetMessages.
TABULO_JNI(jint, JNITboMessageWatcher, startWatching)
(JNIEnv* env, jobject, jlong handle, jint, jintArray, jboolean) {
    if (tabulo::checkHandle(env, handle, tabulo::NULL_POINTER_ERROR)) {
        tabulo::throwTboException(env, tabulo::NOT_IMPLEMENTED_ERROR);
    }
    return 0;
}

// A 0 handle is ignored.
TABULO_JNI(void, JNITboMessageWatcher, uninitialize)(JNIEnv* env, jclass, jlong handle) {
    if (handle != 0) {
        tabulo::throwTboException(env, tabulo::NOT_IMPLEMENTED_ERROR);
    }
}
