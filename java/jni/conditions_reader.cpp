#include "jni/conditions_reader.h"

#include <optional>
#include <vector>

#include "jni/jni_exception.h"
#include "jni/jni_getters.h"
#include "jni/jni_strings.h"

namespace tabulo::internal {

namespace {

constexpr const char* STRING_ARRAY = "[Ljava/lang/String;";
constexpr std::int32_t DOUBLE_VALUES = 1;
constexpr std::int32_t LONG_VALUES = 2;

using Step = ErrorCode (*)(JNIEnv* env, jobject object, QueryConditions* conditions);

ErrorCode readDirection(JNIEnv* env, jobject object, QueryConditions* conditions) {
    std::optional<bool> backward;
    const ErrorCode code = callBooleanGetter(env, object, "getIterateBackward", &backward);
    return code == NO_ERROR && backward ? conditions_setIterateBackward(conditions, *backward) : code;
}

// A range of two integers that counts only when both are given.
ErrorCode readIntegerRange(JNIEnv* env, jobject object, const char* first, const char* last,
                           QueryConditions* conditions,
                           ErrorCode (*setter)(QueryConditions*, std::int32_t, std::int32_t)) {
    std::optional<std::int32_t> from;
    std::optional<std::int32_t> to;
    ErrorCode code = callIntegerGetter(env, object, first, &from);
    if (code == NO_ERROR) {
        code = callIntegerGetter(env, object, last, &to);
    }
    return code == NO_ERROR && from && to ? setter(conditions, *from, *to) : code;
}

ErrorCode readSeqNums(JNIEnv* env, jobject object, QueryConditions* conditions) {
    return readIntegerRange(env, object, "getBeginSeqNum", "getEndSeqNum", conditions, conditions_setSeqNumRange);
}

ErrorCode readIdRange(JNIEnv* env, jobject object, QueryConditions* conditions) {
    return readIntegerRange(env, object, "getStartMessageId", "getEndMessageId", conditions,
                            conditions_setMessageIdRange);
}

ErrorCode readIdRanges(JNIEnv* env, jobject object, QueryConditions* conditions) {
    ArrayCopy<std::int32_t> starts;
    ArrayCopy<std::int32_t> ends;
    ErrorCode code = callIntArrayGetter(env, object, "getStartMessageIds", &starts);
    if (code == NO_ERROR) {
        code = callIntArrayGetter(env, object, "getEndMessageIds", &ends);
    }
    const bool given = starts.elements != nullptr || ends.elements != nullptr;
    return code == NO_ERROR && given ? conditions_setMessageIdRanges(conditions, starts.elements.get(), starts.count,
                                                                     ends.elements.get(), ends.count)
                                     : code;
}

// The texts of a String[]; *given is false for a null array.
ErrorCode readTexts(JNIEnv* env, jobject object, const char* getter, jint fieldId, bool* given,
                    std::vector<NativeText>* texts) {
    jobject result = nullptr;
    ErrorCode code = callObjectGetter(env, object, getter, STRING_ARRAY, &result, fieldId);
    auto* array = static_cast<jobjectArray>(result);
    *given = array != nullptr;
    texts->clear();
    if (code == NO_ERROR && array != nullptr) {
        code = stringArrayToNative(env, array, env->GetArrayLength(array), texts);
    }
    env->DeleteLocalRef(array);
    return code;
}

ErrorCode readExcludedMsgTypes(JNIEnv* env, jobject object, QueryConditions* conditions) {
    bool given = false;
    std::vector<NativeText> types;
    ErrorCode code = readTexts(env, object, "getExcludeMsgTypes", 0, &given, &types);
    if (code == NO_ERROR && given) {
        code = conditions_setExcludedMsgTypeCount(conditions, static_cast<std::int32_t>(types.size()));
    }
    for (std::size_t i = 0; code == NO_ERROR && i < types.size(); ++i) {
        code = conditions_setExcludedMsgType(conditions, static_cast<std::int32_t>(i), types[i].get());
    }
    return code;
}

ErrorCode readTime(JNIEnv* env, jobject object, const char* getter, QueryConditions* conditions,
                   ErrorCode (*setter)(QueryConditions*, std::int64_t)) {
    std::optional<std::int64_t> time;
    const ErrorCode code = callLongGetter(env, object, getter, &time);
    return code == NO_ERROR && time ? setter(conditions, *time) : code;
}

ErrorCode readTimes(JNIEnv* env, jobject object, QueryConditions* conditions) {
    const ErrorCode code = readTime(env, object, "getStartingTime", conditions, conditions_setStartingTime);
    return code == NO_ERROR ? readTime(env, object, "getEndingTime", conditions, conditions_setEndingTime) : code;
}

ErrorCode readPossDup(JNIEnv* env, jobject object, QueryConditions* conditions) {
    std::optional<bool> isPossDup;
    const ErrorCode code = callBooleanGetter(env, object, "getIsPossDupFlag", &isPossDup);
    return code == NO_ERROR && isPossDup ? conditions_setPossDupFlag(conditions, *isPossDup) : code;
}

// A flag of a filter; false when it is not given.
ErrorCode readFlag(JNIEnv* env, jobject object, const char* getter, jint fieldId, bool* flag) {
    std::optional<bool> given;
    const ErrorCode code = callBooleanGetter(env, object, getter, &given, fieldId);
    *flag = given.value_or(false);
    return code;
}

// What the five getters of one string filter gave.
struct StringFilterArguments {
    std::vector<NativeText> values;
    std::vector<NativeText> minimums;
    std::vector<NativeText> maximums;
    bool hasMinimums = false;
    bool hasMaximums = false;
    bool includeNull = false;
    bool ignoreCase = false;
};

ErrorCode readStringFilter(JNIEnv* env, jobject object, jint fieldId, StringFilterArguments* arguments) {
    bool hasValues = false;
    ErrorCode code = readTexts(env, object, "getStringFieldValues(I)", fieldId, &hasValues, &arguments->values);
    if (code == NO_ERROR) {
        code = readTexts(env, object, "getStringFieldMinValues(I)", fieldId, &arguments->hasMinimums,
                         &arguments->minimums);
    }
    if (code == NO_ERROR) {
        code = readTexts(env, object, "getStringFieldMaxValues(I)", fieldId, &arguments->hasMaximums,
                         &arguments->maximums);
    }
    if (code == NO_ERROR) {
        code = readFlag(env, object, "getStringFieldIncludeNull(I)", fieldId, &arguments->includeNull);
    }
    if (code == NO_ERROR) {
        code = readFlag(env, object, "getStringFieldIgnoreCase(I)", fieldId, &arguments->ignoreCase);
    }
    const bool unequal =
        arguments->hasMinimums && arguments->hasMaximums && arguments->minimums.size() != arguments->maximums.size();
    return code == NO_ERROR && unequal ? WRONG_PARAMETER_ERROR : code;
}

ErrorCode addStringFilter(const StringFilterArguments& arguments, jint fieldId, QueryConditions* conditions) {
    const std::size_t valueCount = arguments.values.size();
    const std::size_t pairCount = arguments.hasMinimums ? arguments.minimums.size() : arguments.maximums.size();
    ErrorCode code = conditions_addStringFilter(conditions, fieldId, arguments.includeNull, arguments.ignoreCase);
    if (code == NO_ERROR) {
        code = conditions_setStringFilterValueCount(conditions, static_cast<std::int32_t>(valueCount));
    }
    for (std::size_t i = 0; code == NO_ERROR && i < valueCount; ++i) {
        code = conditions_setStringFilterValue(conditions, arguments.values[i].get(), static_cast<std::int32_t>(i));
    }
    if (code == NO_ERROR) {
        code = conditions_setStringFilterRangeCount(conditions, static_cast<std::int32_t>(2 * pairCount));
    }
    for (std::size_t k = 0; code == NO_ERROR && k < pairCount; ++k) {
        code = conditions_setStringFilterRange(
            conditions, arguments.hasMinimums ? arguments.minimums[k].get() : nullptr,
            arguments.hasMaximums ? arguments.maximums[k].get() : nullptr, static_cast<std::int32_t>(2 * k));
    }
    return code;
}

ErrorCode readStringFilters(JNIEnv* env, jobject object, QueryConditions* conditions) {
    ArrayCopy<std::int32_t> fieldIds;
    ErrorCode code = callIntArrayGetter(env, object, "getStringFieldsIds", &fieldIds);
    for (std::int32_t i = 0; code == NO_ERROR && i < fieldIds.count; ++i) {
        const jint fieldId = fieldIds.elements[static_cast<std::size_t>(i)];
        StringFilterArguments arguments;
        code = readStringFilter(env, object, fieldId, &arguments);
        if (code == NO_ERROR) {
            code = addStringFilter(arguments, fieldId, conditions);
        }
    }
    return code;
}

// The three array getters of a numeric filter of one type, and how it is added.
template <typename Number>
struct NumericGetters {
    const char* minimums;
    const char* maximums;
    const char* values;
    ErrorCode (*call)(JNIEnv* env, jobject object, const char* name, ArrayCopy<Number>* copy, ...);
    ErrorCode (*add)(QueryConditions* conditions, std::int32_t fieldIndex, const Number* minimums,
                     const Number* maximums, std::int32_t pairCount, const Number* values, std::int32_t valueCount,
                     bool includeNull);
};

constexpr NumericGetters<double> doubleGetters{"getDoubleNumericFieldMinValues(I)", "getDoubleNumericFieldMaxValues(I)",
                                               "getDoubleNumericFieldValues(I)", callDoubleArrayGetter,
                                               conditions_addDoubleFilter};
constexpr NumericGetters<std::int64_t> longGetters{"getLongNumericFieldMinValues(I)", "getLongNumericFieldMaxValues(I)",
                                                   "getLongNumericFieldValues(I)", callLongArrayGetter,
                                                   conditions_addLongFilter};

template <typename Number>
ErrorCode addNumericFilter(JNIEnv* env, jobject object, jint fieldId, bool includeNull,
                           const NumericGetters<Number>& getters, QueryConditions* conditions) {
    ArrayCopy<Number> minimums;
    ArrayCopy<Number> maximums;
    ArrayCopy<Number> values;
    ErrorCode code = getters.call(env, object, getters.minimums, &minimums, fieldId);
    if (code == NO_ERROR) {
        code = getters.call(env, object, getters.maximums, &maximums, fieldId);
    }
    if (code == NO_ERROR) {
        code = getters.call(env, object, getters.values, &values, fieldId);
    }
    if (code != NO_ERROR) {
        return code;
    }
    const bool hasPairs = minimums.elements != nullptr && maximums.elements != nullptr;
    if (hasPairs && minimums.count != maximums.count) {
        return WRONG_PARAMETER_ERROR;
    }
    return getters.add(conditions, fieldId, minimums.elements.get(), maximums.elements.get(),
                       hasPairs ? minimums.count : 0, values.elements.get(), values.count, includeNull);
}

ErrorCode readNumericFilter(JNIEnv* env, jobject object, jint fieldId, QueryConditions* conditions) {
    std::optional<std::int32_t> valuesType;
    bool includeNull = false;
    ErrorCode code = callIntegerGetter(env, object, "getNumericFieldValuesType(I)", &valuesType, fieldId);
    if (code == NO_ERROR) {
        code = readFlag(env, object, "getNumericFieldIncludeNull(I)", fieldId, &includeNull);
    }
    if (code != NO_ERROR) {
        return code;
    }
    if (valuesType == DOUBLE_VALUES) {
        return addNumericFilter(env, object, fieldId, includeNull, doubleGetters, conditions);
    }
    if (valuesType == LONG_VALUES) {
        return addNumericFilter(env, object, fieldId, includeNull, longGetters, conditions);
    }
    return NOT_IMPLEMENTED_ERROR;
}

ErrorCode readNumericFilters(JNIEnv* env, jobject object, QueryConditions* conditions) {
    ArrayCopy<std::int32_t> fieldIds;
    ErrorCode code = callIntArrayGetter(env, object, "getNumericFieldsIds", &fieldIds);
    for (std::int32_t i = 0; code == NO_ERROR && i < fieldIds.count; ++i) {
        code = readNumericFilter(env, object, fieldIds.elements[static_cast<std::size_t>(i)], conditions);
    }
    return code;
}

// Hosts may count on this order.
constexpr Step steps[] = {readDirection,        readSeqNums, readStringFilters, readIdRanges,      readIdRange,
                          readExcludedMsgTypes, readTimes,   readPossDup,       readNumericFilters};

}  // namespace

ErrorCode conditionsReader_read(JNIEnv* env, jobject object, QueryConditions* conditions) noexcept {
    if (object == nullptr) {
        return NULL_POINTER_ERROR;
    }
    for (const Step step : steps) {
        const ErrorCode code = step(env, object, conditions);
        if (code != NO_ERROR) {
            return code;
        }
    }
    return NO_ERROR;
}

}  // namespace tabulo::internal
