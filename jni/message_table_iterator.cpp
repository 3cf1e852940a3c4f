// Native methods of JNITboMessageTableIterator. Every method takes the iterator's handle first; 0 is
// ITERATOR_CLOSED_ERROR.
#include "jni/jni_exception.h"

namespace {

void throwNotImplemented(JNIEnv* env, jlong handle) {
    if (tabulo::checkHandle(env, handle, tabulo::ITERATOR_CLOSED_ERROR)) {
        tabulo::throwTboException(env, tabulo::NOT_IMPLEMENTED_ERROR);
    }
}

}  // namespace

TABULO_JNI(jboolean, JNITboMessageTableIterator, next)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return JNI_FALSE;
}

TABULO_JNI(void, JNITboMessageTableIterator, close)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
}

TABULO_JNI(jint, JNITboMessageTableIterator, getConnectionMsgId)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return 0;
}

TABULO_JNI(jint, JNITboMessageTableIterator, getUniformMessageId)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return 0;
}

TABULO_JNI(jint, JNITboMessageTableIterator, getMsgSeqNum)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return 0;
}

TABULO_JNI(jint, JNITboMessageTableIterator, getPrevSeqNum)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return 0;
}

TABULO_JNI(jlong, JNITboMessageTableIterator, getTimestamp)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return 0;
}

TABULO_JNI(jstring, JNITboMessageTableIterator, getMsgType)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return nullptr;
}

TABULO_JNI(jboolean, JNITboMessageTableIterator, getIsPossDupFlag)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return JNI_FALSE;
}

TABULO_JNI(jboolean, JNITboMessageTableIterator, getIsOutOfSequence)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return JNI_FALSE;
}

TABULO_JNI(jstring, JNITboMessageTableIterator, getWireMessage)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return nullptr;
}

TABULO_JNI(jbyteArray, JNITboMessageTableIterator, getWireMessageAsByteArray)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return nullptr;
}

TABULO_JNI(jstring, JNITboMessageTableIterator, getNonMetadataFields)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return nullptr;
}

TABULO_JNI(jbyteArray, JNITboMessageTableIterator, getNonMetadataFieldsAsByteArray)(JNIEnv* env, jclass, jlong handle) {
    throwNotImplemented(env, handle);
    return nullptr;
}

TABULO_JNI(jstring, JNITboMessageTableIterator, getStringField)(JNIEnv* env, jclass, jlong handle, jint) {
    throwNotImplemented(env, handle);
    return nullptr;
}

TABULO_JNI(jlong, JNITboMessageTableIterator, getNumericFieldAsLong)(JNIEnv* env, jclass, jlong handle, jint) {
    throwNotImplemented(env, handle);
    return 0;
}

TABULO_JNI(jdouble, JNITboMessageTableIterator, getNumericFieldAsDouble)(JNIEnv* env, jclass, jlong handle, jint) {
    throwNotImplemented(env, handle);
    return 0;
}
