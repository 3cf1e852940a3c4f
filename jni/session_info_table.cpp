// Native methods of JNITboSessionInfoTable.
#include "jni/jni_exception.h"

using tabulo::checkHandle;
using tabulo::NOT_IMPLEMENTED_ERROR;
using tabulo::TABLE_CLOSED_ERROR;
using tabulo::throwTboException;

TABULO_JNI(jlong, JNITboSessionInfoTable, initializeNative)(JNIEnv* env, jclass, jobject, jint) {
    throwTboException(env, NOT_IMPLEMENTED_ERROR);
    return 0;
}

// A 0 handle is ignored.
TABULO_JNI(void, JNITboSessionInfoTable, uninitializeNative)(JNIEnv* env, jclass, jlong handle) {
    if (handle != 0) {
        throwTboException(env, NOT_IMPLEMENTED_ERROR);
    }
}

TABULO_JNI(void, JNITboSessionInfoTable, dropNative)(JNIEnv* env, jclass, jlong handle) {
    if (checkHandle(env, handle, TABLE_CLOSED_ERROR)) {
        throwTboException(env, NOT_IMPLEMENTED_ERROR);
    }
}

TABULO_JNI(void, JNITboSessionInfoTable, writeFieldsNative)
(JNIEnv* env, jclass, jlong handle, jint, jintArray, jlongArray) {
    if (checkHandle(env, handle, TABLE_CLOSED_ERROR)) {
        throwTboException(env, NOT_IMPLEMENTED_ERROR);
    }
}

TABULO_JNI(void, JNITboSessionInfoTable, readFieldsNative)
(JNIEnv* env, jclass, jlong handle, jint, jintArray, jlongArray) {
    if (checkHandle(env, handle, TABLE_CLOSED_ERROR)) {
        throwTboException(env, NOT_IMPLEMENTED_ERROR);
    }
}
