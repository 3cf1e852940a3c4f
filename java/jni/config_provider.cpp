#include "jni/config_provider.h"

#include <algorithm>

#include "core/log.h"
#include "jni/jni_exception.h"
#include "jni/jni_getters.h"
#include "jni/jni_strings.h"

namespace tabulo::internal {

namespace {

constexpr const char* STRING_TYPE = "Ljava/lang/String;";
constexpr const char* STRING_ARRAY_TYPE = "[Ljava/lang/String;";

// What the provider's getters returned: local references, freed when Java gets control back.
struct ProviderValues {
    jstring tableName = nullptr;
    jstring dbRoot = nullptr;
    jobjectArray replicasDbRoots = nullptr;
    jobjectArray stringFieldsNames = nullptr;
    jobjectArray numericFieldsNames = nullptr;
};

ErrorCode readString(JNIEnv* env, jobject provider, const char* getter, jstring* value) {
    jobject text = nullptr;
    const ErrorCode code = callObjectGetter(env, provider, getter, STRING_TYPE, &text);
    *value = static_cast<jstring>(text);
    return code == NO_ERROR && text == nullptr ? NULL_POINTER_ERROR : code;
}

ErrorCode readStringArray(JNIEnv* env, jobject provider, const char* getter, jobjectArray* value) {
    jobject array = nullptr;
    const ErrorCode code = callObjectGetter(env, provider, getter, STRING_ARRAY_TYPE, &array);
    *value = static_cast<jobjectArray>(array);
    return code;
}

ErrorCode readValues(JNIEnv* env, jobject provider, ProviderValues* values) {
    ErrorCode code = readString(env, provider, "getTableName", &values->tableName);
    if (code == NO_ERROR) {
        code = readString(env, provider, "getDbRoot", &values->dbRoot);
    }
    if (code == NO_ERROR) {
        code = readStringArray(env, provider, "getReplicasDbRoots", &values->replicasDbRoots);
    }
    if (code == NO_ERROR) {
        code = readStringArray(env, provider, "getStringFieldsNames", &values->stringFieldsNames);
    }
    if (code == NO_ERROR) {
        code = readStringArray(env, provider, "getNumericFieldsNames", &values->numericFieldsNames);
    }
    return code;
}

ErrorCode setPath(JNIEnv* env, KSVTboTableConfig* config, std::int32_t index, jstring root) {
    if (root == nullptr) {
        return NULL_POINTER_ERROR;
    }
    NativeText text;
    const ErrorCode code = javaStringToNative(env, root, &text);
    return code != NO_ERROR ? code : tableConfig_setPath(config, index, text.get());
}

ErrorCode setPaths(JNIEnv* env, KSVTboTableConfig* config, const ProviderValues& values, std::int32_t rootCount) {
    ErrorCode code = setPath(env, config, 0, values.dbRoot);
    for (std::int32_t i = 1; code == NO_ERROR && i < rootCount; ++i) {
        auto* root = static_cast<jstring>(env->GetObjectArrayElement(values.replicasDbRoots, i - 1));
        code = checkJavaException(env);
        if (code == NO_ERROR) {
            code = setPath(env, config, i, root);
        }
        env->DeleteLocalRef(root);
    }
    return code;
}

ErrorCode addNames(JNIEnv* env, KSVTboTableConfig* config, const ProviderValues& values) {
    const ErrorCode code =
        forEachStringOfArray(env, values.stringFieldsNames, config, [](void* target, const char* name) {
            return tableConfig_addStringFieldName(static_cast<KSVTboTableConfig*>(target), name);
        });
    if (code != NO_ERROR) {
        return code;
    }
    return forEachStringOfArray(env, values.numericFieldsNames, config, [](void* target, const char* name) {
        return tableConfig_addNumericFieldName(static_cast<KSVTboTableConfig*>(target), name);
    });
}

ErrorCode setTags(JNIEnv* env, KSVTboTableConfig* config, jobject provider) {
    ArrayCopy<std::int32_t> given;
    const ErrorCode code = callIntArrayGetter(env, provider, "getSessionInfoTableTags", &given);
    if (code != NO_ERROR || given.count == 0) {
        return code;
    }
    if (given.count > MAX_SESSION_INFO_TAGS) {
        log_warning("jniConfigProvider_make", "Number of configured session info table fields exceeds limit (%d)\n",
                    MAX_SESSION_INFO_TAGS);
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    SessionInfoTags tags;
    tags.count = given.count;
    tags.tags.fill(0);
    std::copy_n(given.elements.get(), given.count, tags.tags.begin());
    return tableConfig_setParams(config, nullptr, &tags);
}

ErrorCode fill(JNIEnv* env, jobject provider, KSVTboTableConfig** config) {
    ProviderValues values;
    ErrorCode code = readValues(env, provider, &values);
    if (code != NO_ERROR) {
        return code;
    }
    const std::int32_t rootCount =
        1 + (values.replicasDbRoots == nullptr ? 0 : env->GetArrayLength(values.replicasDbRoots));
    NativeText tableName;
    code = javaStringToNative(env, values.tableName, &tableName);
    if (code != NO_ERROR) {
        return code;
    }
    *config = tableConfig_create(tableName.get(), rootCount);
    if (*config == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    code = setPaths(env, *config, values, rootCount);
    if (code == NO_ERROR) {
        code = addNames(env, *config, values);
    }
    return code == NO_ERROR ? setTags(env, *config, provider) : code;
}

}  // namespace

ErrorCode jniConfigProvider_make(KSVTboTableConfig** config, JNIEnv* env, jobject provider) noexcept {
    if (config == nullptr) {
        return NULL_POINTER_ERROR;
    }
    *config = nullptr;
    ErrorCode code = provider == nullptr ? JNI_ERROR : fill(env, provider, config);
    if (checkJavaException(env) != NO_ERROR) {
        code = JNI_ERROR;
    }
    if (code != NO_ERROR) {
        tableConfig_destroy(*config);
        *config = nullptr;
    }
    return code;
}

}  // namespace tabulo::internal
