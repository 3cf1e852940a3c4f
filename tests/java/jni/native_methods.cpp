#include "tests/java/jni/native_methods.h"

#include <string>
#include <vector>

// The exported functions themselves, whose types are the virtual machine's business.
#define TABULO_NATIVE(Class, Method) extern "C" void Java_com_corvane_kestrova_engine_tabulo_jni_##Class##_##Method()
TABULO_NATIVE(JNITboLibLoader, initLibrary);
TABULO_NATIVE(JNITboLibLoader, uninitLibrary);
TABULO_NATIVE(JNITboLibLoader, setLogFacility);
TABULO_NATIVE(JNITboLibLoader, setDoSyncToDisk);
TABULO_NATIVE(JNITboSessionInfoTable, initializeNative);
TABULO_NATIVE(JNITboSessionInfoTable, uninitializeNative);
TABULO_NATIVE(JNITboSessionInfoTable, dropNative);
TABULO_NATIVE(JNITboSessionInfoTable, writeFieldsNative);
TABULO_NATIVE(JNITboSessionInfoTable, readFieldsNative);
TABULO_NATIVE(JNITboMessageTable, initializeNative);
TABULO_NATIVE(JNITboMessageTable, uninitializeNative);
TABULO_NATIVE(JNITboMessageTable, closeNative);
TABULO_NATIVE(JNITboMessageTable, dropNative);
TABULO_NATIVE(
    JNITboMessageTable,
    writeMessage__JIIIIJCLjava_lang_String_2ZZLjava_lang_String_2Ljava_lang_String_2Ljava_lang_String_2Ljava_lang_String_2_3Ljava_lang_String_2_3D);
TABULO_NATIVE(
    JNITboMessageTable,
    writeMessage__JIIIIJCLjava_lang_String_2ZZLjava_lang_String_2Ljava_lang_String_2_3BII_3BII_3BII_3Ljava_lang_String_2_3I_3J_3D);
TABULO_NATIVE(JNITboMessageTable, writeMessage__J_3BII);
TABULO_NATIVE(JNITboMessageTable, readMessages);
TABULO_NATIVE(JNITboMessageTable, getMessages);
TABULO_NATIVE(JNITboMessageTable, getLastMessageId);
TABULO_NATIVE(JNITboMessageTable, getLastGoodMsgSeqNum);
TABULO_NATIVE(JNITboMessageTable, getPendingMsgSeqNum);
TABULO_NATIVE(JNITboMessageTable, getLastUniformMessageId);
TABULO_NATIVE(JNITboMessageTableIterator, close);
TABULO_NATIVE(JNITboMessageTableIterator, next);
TABULO_NATIVE(JNITboMessageTableIterator, getConnectionMsgId);
TABULO_NATIVE(JNITboMessageTableIterator, getUniformMessageId);
TABULO_NATIVE(JNITboMessageTableIterator, getMsgSeqNum);
TABULO_NATIVE(JNITboMessageTableIterator, getPrevSeqNum);
TABULO_NATIVE(JNITboMessageTableIterator, getTimestamp);
TABULO_NATIVE(JNITboMessageTableIterator, getMsgType);
TABULO_NATIVE(JNITboMessageTableIterator, getIsPossDupFlag);
TABULO_NATIVE(JNITboMessageTableIterator, getIsOutOfSequence);
TABULO_NATIVE(JNITboMessageTableIterator, getWireMessage);
TABULO_NATIVE(JNITboMessageTableIterator, getWireMessageAsByteArray);
TABULO_NATIVE(JNITboMessageTableIterator, getNonMetadataFields);
TABULO_NATIVE(JNITboMessageTableIterator, getNonMetadataFieldsAsByteArray);
TABULO_NATIVE(JNITboMessageTableIterator, getStringField);
TABULO_NATIVE(JNITboMessageTableIterator, getNumericFieldAsLong);
TABULO_NATIVE(JNITboMessageTableIterator, getNumericFieldAsDouble);
TABULO_NATIVE(JNITboMessageWatcher, initialize);
TABULO_NATIVE(JNITboMessageWatcher, startWatching);
TABULO_NATIVE(JNITboMessageWatcher, uninitialize);
#undef TABULO_NATIVE

namespace tabulo::internal::test {

namespace {

struct NativeMethod {
    const char* name;
    const char* signature;
    void (*function)();
};

// clang-format off
#define TABULO_NATIVE(Class, Name, Signature, Method) \
    {Name, Signature, Java_com_corvane_kestrova_engine_tabulo_jni_##Class##_##Method}
const std::vector<NativeMethod> ofJNITboLibLoader = {
    TABULO_NATIVE(JNITboLibLoader, "initLibrary", "()V", initLibrary),
    TABULO_NATIVE(JNITboLibLoader, "uninitLibrary", "()V", uninitLibrary),
    TABULO_NATIVE(JNITboLibLoader, "setLogFacility", "(Ljava/lang/Object;)V", setLogFacility),
    TABULO_NATIVE(JNITboLibLoader, "setDoSyncToDisk", "(ZII)V", setDoSyncToDisk),
};
const std::vector<NativeMethod> ofJNITboSessionInfoTable = {
    TABULO_NATIVE(JNITboSessionInfoTable, "initializeNative", "(Ljava/lang/Object;I)J", initializeNative),
    TABULO_NATIVE(JNITboSessionInfoTable, "uninitializeNative", "(J)V", uninitializeNative),
    TABULO_NATIVE(JNITboSessionInfoTable, "dropNative", "(J)V", dropNative),
    TABULO_NATIVE(JNITboSessionInfoTable, "writeFieldsNative", "(JI[I[J)V", writeFieldsNative),
    TABULO_NATIVE(JNITboSessionInfoTable, "readFieldsNative", "(JI[I[J)V", readFieldsNative),
};
const std::vector<NativeMethod> ofJNITboMessageTable = {
    TABULO_NATIVE(JNITboMessageTable, "initializeNative", "(Ljava/lang/Object;I)J", initializeNative),
    TABULO_NATIVE(JNITboMessageTable, "uninitializeNative", "(J)V", uninitializeNative),
    TABULO_NATIVE(JNITboMessageTable, "closeNative", "(J)V", closeNative),
    TABULO_NATIVE(JNITboMessageTable, "dropNative", "(J)V", dropNative),
    TABULO_NATIVE(JNITboMessageTable, "writeMessage",
                  "(JIIIIJCLjava/lang/String;ZZLjava/lang/String;Ljava/lang/String;Ljava/"
                  "lang/String;Ljava/lang/String;[Ljava/lang/String;[D)V",
                  writeMessage__JIIIIJCLjava_lang_String_2ZZLjava_lang_String_2Ljava_lang_String_2Ljava_lang_String_2Ljava_lang_String_2_3Ljava_lang_String_2_3D),
    TABULO_NATIVE(JNITboMessageTable, "writeMessage",
                  "(JIIIIJCLjava/lang/String;ZZLjava/lang/String;Ljava/lang/String;[BII[B"
                  "II[BII[Ljava/lang/String;[I[J[D)V",
                  writeMessage__JIIIIJCLjava_lang_String_2ZZLjava_lang_String_2Ljava_lang_String_2_3BII_3BII_3BII_3Ljava_lang_String_2_3I_3J_3D),
    TABULO_NATIVE(JNITboMessageTable, "writeMessage", "(J[BII)V", writeMessage__J_3BII),
    TABULO_NATIVE(JNITboMessageTable, "readMessages", "(J[IILjava/lang/Object;)V", readMessages),
    TABULO_NATIVE(JNITboMessageTable, "getMessages", "(JLjava/lang/Object;)J", getMessages),
    TABULO_NATIVE(JNITboMessageTable, "getLastMessageId", "(JI)I", getLastMessageId),
    TABULO_NATIVE(JNITboMessageTable, "getLastGoodMsgSeqNum", "(JJLjava/lang/Object;)I", getLastGoodMsgSeqNum),
    TABULO_NATIVE(JNITboMessageTable, "getPendingMsgSeqNum", "(JJZ)I", getPendingMsgSeqNum),
    TABULO_NATIVE(JNITboMessageTable, "getLastUniformMessageId", "(J)I", getLastUniformMessageId),
};
const std::vector<NativeMethod> ofJNITboMessageTableIterator = {
    TABULO_NATIVE(JNITboMessageTableIterator, "close", "(J)V", close),
    TABULO_NATIVE(JNITboMessageTableIterator, "next", "(J)Z", next),
    TABULO_NATIVE(JNITboMessageTableIterator, "getConnectionMsgId", "(J)I", getConnectionMsgId),
    TABULO_NATIVE(JNITboMessageTableIterator, "getUniformMessageId", "(J)I", getUniformMessageId),
    TABULO_NATIVE(JNITboMessageTableIterator, "getMsgSeqNum", "(J)I", getMsgSeqNum),
    TABULO_NATIVE(JNITboMessageTableIterator, "getPrevSeqNum", "(J)I", getPrevSeqNum),
    TABULO_NATIVE(JNITboMessageTableIterator, "getTimestamp", "(J)J", getTimestamp),
    TABULO_NATIVE(JNITboMessageTableIterator, "getMsgType", "(J)Ljava/lang/String;", getMsgType),
    TABULO_NATIVE(JNITboMessageTableIterator, "getIsPossDupFlag", "(J)Z", getIsPossDupFlag),
    TABULO_NATIVE(JNITboMessageTableIterator, "getIsOutOfSequence", "(J)Z", getIsOutOfSequence),
    TABULO_NATIVE(JNITboMessageTableIterator, "getWireMessage", "(J)Ljava/lang/String;", getWireMessage),
    TABULO_NATIVE(JNITboMessageTableIterator, "getWireMessageAsByteArray", "(J)[B", getWireMessageAsByteArray),
    TABULO_NATIVE(JNITboMessageTableIterator, "getNonMetadataFields", "(J)Ljava/lang/String;", getNonMetadataFields),
    TABULO_NATIVE(JNITboMessageTableIterator, "getNonMetadataFieldsAsByteArray",
                  "(J)[B"
                  "",
                  getNonMetadataFieldsAsByteArray),
    TABULO_NATIVE(JNITboMessageTableIterator, "getStringField", "(JI)Ljava/lang/String;", getStringField),
    TABULO_NATIVE(JNITboMessageTableIterator, "getNumericFieldAsLong", "(JI)J", getNumericFieldAsLong),
    TABULO_NATIVE(JNITboMessageTableIterator, "getNumericFieldAsDouble", "(JI)D", getNumericFieldAsDouble),
};
const std::vector<NativeMethod> ofJNITboMessageWatcher = {
    TABULO_NATIVE(JNITboMessageWatcher, "initialize", "([J)J", initialize),
    TABULO_NATIVE(JNITboMessageWatcher, "startWatching", "(JI[IZ)I", startWatching),
    TABULO_NATIVE(JNITboMessageWatcher, "uninitialize", "(J)V", uninitialize),
};
#undef TABULO_NATIVE
// clang-format on

bool registerOf(JNIEnv* env, const char* className, const std::vector<NativeMethod>& methods) {
    const std::string name = std::string("com/corvane/kestrova/engine/tabulo/jni/") + className;
    jclass found = env->FindClass(name.c_str());
    std::vector<JNINativeMethod> registered;
    for (const NativeMethod& method : methods) {
        // The type has no const; nothing is written.
        registered.push_back({const_cast<char*>(method.name), const_cast<char*>(method.signature),
                              reinterpret_cast<void*>(method.function)});
    }
    return found != nullptr &&
           env->RegisterNatives(found, registered.data(), static_cast<jint>(registered.size())) == JNI_OK;
}

}  // namespace

bool nativeMethods_register(JNIEnv* env) {
    return registerOf(env, "JNITboLibLoader", ofJNITboLibLoader) &&
           registerOf(env, "JNITboSessionInfoTable", ofJNITboSessionInfoTable) &&
           registerOf(env, "JNITboMessageTable", ofJNITboMessageTable) &&
           registerOf(env, "JNITboMessageTableIterator", ofJNITboMessageTableIterator) &&
           registerOf(env, "JNITboMessageWatcher", ofJNITboMessageWatcher);
}

}  // namespace tabulo::internal::test
