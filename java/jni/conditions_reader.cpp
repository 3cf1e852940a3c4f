#include "jni/conditions_reader.h"

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

// Stores what a boxed getter gave, unless it threw.
template <typename Setter>
ErrorCode store(JNIEnv* env, bool given, Setter setter) {
    const ErrorCode code = checkJavaException(env);
    return code == NO_ERROR && given ? setter() : code;
}

ErrorCode readDirection(JNIEnv* env, jobject object, QueryConditions* conditions) {
    bool backward = false;
    const bool given = callBooleanGetter(env, object, "getIterateBackward", &backward) != 0;
    return store(env, given, [&] { return conditions_setIterateBackward(conditions, backward); });
}

// A range of two integers that counts only when both are given.
ErrorCode readIntegerRange(JNIEnv* env, jobject object, const char* first, const char* last,
                           QueryConditions* conditions,
                           ErrorCode (*setter)(QueryConditions*, std::int32_t, std::int32_t)) {
    std::int32_t from = 0;
    std::int32_t to = 0;
    bool given = callIntegerGetter(env, object, first, &from) != 0;
    const ErrorCode code = checkJavaException(env);
    if (code != NO_ERROR) {
        return code;
    }
    given = callIntegerGetter(env, object, last, &to) != 0 && given;
    return store(env, given, [&] { return setter(conditions, from, to); });
}

ErrorCode readSeqNums(JNIEnv* env, jobject object, QueryConditions* conditions) {
    return readIntegerRange(env, object, "getBeginSeqNum", "getEndSeqNum", conditions, conditions_setSeqNumRange);
}

ErrorCode readIdRange(JNIEnv* env, jobject object, QueryConditions* conditions) {
    return readIntegerRange(env, object, "getStartMessageId", "getEndMessageId", conditions,
                            conditions_setMessageIdRange);
}

ErrorCode readIdRanges(JNIEnv* env, jobject object, QueryConditions* conditions) {
    std::int32_t startCount = 0;
    std::int32_t endCount = 0;
    const auto starts = callIntArrayGetter(env, object, "getStartMessageIds", &startCount);
    const ErrorCode code = checkJavaException(env);
    if (code != NO_ERROR) {
        return code;
    }
    const auto ends = callIntArrayGetter(env, object, "getEndMessageIds", &endCount);
    return store(env, starts != nullptr || ends != nullptr, [&] {
        return conditions_setMessageIdRanges(conditions, starts.get(), startCount, ends.get(), endCount);
    });
}

// The texts of a String[]; *given is false for a null array.
ErrorCode readTexts(JNIEnv* env, jobject object, const char* getter, jint fieldId, bool* given,
                    std::vector<NativeText>* texts) {
    auto* array = static_cast<jobjectArray>(callObjectGetter(env, object, getter, STRING_ARRAY, fieldId));
    ErrorCode code = checkJavaException(env);
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

ErrorCode readTimes(JNIEnv* env, jobject object, QueryConditions* conditions) {
    std::int64_t time = 0;
    bool given = callLongGetter(env, object, "getStartingTime", &time) != 0;
    const ErrorCode code = store(env, given, [&] { return conditions_setStartingTime(conditions, time); });
    if (code != NO_ERROR) {
        return code;
    }
    given = callLongGetter(env, object, "getEndingTime", &time) != 0;
    return store(env, given, [&] { return conditions_setEndingTime(conditions, time); });
}

ErrorCode readPossDup(JNIEnv* env, jobject object, QueryConditions* conditions) {
    bool isPossDup = false;
    const bool given = callBooleanGetter(env, object, "getIsPossDupFlag", &isPossDup) != 0;
    return store(env, given, [&] { return conditions_setPossDupFlag(conditions, isPossDup); });
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
        callBooleanGetter(env, object, "getStringFieldIncludeNull(I)", &arguments->includeNull, fieldId);
        code = checkJavaException(env);
    }
    if (code == NO_ERROR) {
        callBooleanGetter(env, object, "getStringFieldIgnoreCase(I)", &arguments->ignoreCase, fieldId);
        code = checkJavaException(env);
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
    std::int32_t count = 0;
    const auto fieldIds = callIntArrayGetter(env, object, "getStringFieldsIds", &count);
    ErrorCode code = checkJavaException(env);
    for (std::int32_t i = 0; code == NO_ERROR && i < count; ++i) {
        const jint fieldId = fieldIds[static_cast<std::size_t>(i)];
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
    std::unique_ptr<Number[]> (*call)(JNIEnv* env, jobject object, const char* name, std::int32_t* count, ...);
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
    std::int32_t minimumCount = 0;
    std::int32_t maximumCount = 0;
    std::int32_t valueCount = 0;
    const auto minimums = getters.call(env, object, getters.minimums, &minimumCount, fieldId);
    ErrorCode code = checkJavaException(env);
    if (code != NO_ERROR) {
        return code;
    }
    const auto maximums = getters.call(env, object, getters.maximums, &maximumCount, fieldId);
    code = checkJavaException(env);
    if (code != NO_ERROR) {
        return code;
    }
    const auto values = getters.call(env, object, getters.values, &valueCount, fieldId);
    code = checkJavaException(env);
    if (code != NO_ERROR) {
        return code;
    }
    const bool hasPairs = minimums != nullptr && maximums != nullptr;
    if (hasPairs && minimumCount != maximumCount) {
        return WRONG_PARAMETER_ERROR;
    }
    return getters.add(conditions, fieldId, minimums.get(), maximums.get(), hasPairs ? minimumCount : 0, values.get(),
                       valueCount, includeNull);
}

ErrorCode readNumericFilters(JNIEnv* env, jobject object, QueryConditions* conditions) {
    std::int32_t count = 0;
    const auto fieldIds = callIntArrayGetter(env, object, "getNumericFieldsIds", &count);
    ErrorCode code = checkJavaException(env);
    for (std::int32_t i = 0; code == NO_ERROR && i < count; ++i) {
        const jint fieldId = fieldIds[static_cast<std::size_t>(i)];
        std::int32_t valuesType = 0;
        bool includeNull = false;
        callIntegerGetter(env, object, "getNumericFieldValuesType(I)", &valuesType, fieldId);
        code = checkJavaException(env);
        if (code != NO_ERROR) {
            break;
        }
        callBooleanGetter(env, object, "getNumericFieldIncludeNull(I)", &includeNull, fieldId);
        code = checkJavaException(env);
        if (code != NO_ERROR) {
            break;
        }
        if (valuesType == DOUBLE_VALUES) {
            code = addNumericFilter(env, object, fieldId, includeNull, doubleGetters, conditions);
        } else if (valuesType == LONG_VALUES) {
            code = addNumericFilter(env, object, fieldId, includeNull, longGetters, conditions);
        } else {
            code = NOT_IMPLEMENTED_ERROR;
        }
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
