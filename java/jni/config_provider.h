// A Java configuration provider to a table configuration.
#pragma once

#include <jni.h>

#include "core/error_codes.h"
#include "storage/table_config.h"

namespace tabulo::internal {

// Reads getTableName, getDbRoot, getReplicasDbRoots, getStringFieldsNames, getNumericFieldsNames and
// getSessionInfoTableTags, in this order, from any object that has them, and makes a configuration that the caller
// owns. The last four may return null; an empty tag array counts as null (the default tags).
//
// NULL_POINTER_ERROR: config null, a null name, root, or element of an array. JNI_ERROR: a null provider, a missing
// method, an exception (printed and cleared). OUT_OF_MEMORY_ERROR; STRING_FIELDS_LIMIT_ERROR,
// NUMERIC_FIELDS_LIMIT_ERROR; INDEX_OUT_OF_BOUNDS_ERROR, with a WARNING, for more than 32 tags. *config is null then.
ErrorCode jniConfigProvider_make(KSVTboTableConfig** config, JNIEnv* env, jobject provider) noexcept;

}  // namespace tabulo::internal
