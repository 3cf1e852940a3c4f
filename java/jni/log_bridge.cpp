#include "jni/log_bridge.h"

#include <array>
#include <cstdio>
#include <memory>
#include <new>
#include <string_view>

#include "jni/jni_exception.h"
#include "jni/jni_strings.h"
#include "jni/modified_utf8.h"

namespace tabulo::internal {

namespace {

constexpr std::size_t LINE_BUFFER = 2048;
constexpr jint WRITE_LEVEL = 2;  // the loggers' first argument, the same for every level
constexpr const char* FACILITY_CLASS = "com/corvane/util/log/ILogFacility";
constexpr const char* LOGGER_CLASS = "com/corvane/util/log/ILogger";

struct LoggerAdapter : LogChannel {
    JavaVM* vm = nullptr;
    jobject logger = nullptr;  // global reference; it keeps the class of writeMethod alive
    jmethodID writeMethod = nullptr;
};

struct LogBridge : LogFacility {};

JNIEnv* environmentOf(JavaVM* vm) {
    void* env = nullptr;
    return vm->GetEnv(&env, JNI_VERSION_1_4) == JNI_OK ? static_cast<JNIEnv*>(env) : nullptr;
}

void adapter_release(LogChannel* channel) {
    auto* adapter = static_cast<LoggerAdapter*>(channel);
    JNIEnv* env = environmentOf(adapter->vm);
    if (env != nullptr && adapter->logger != nullptr) {
        env->DeleteGlobalRef(adapter->logger);
    }
    delete adapter;
}

// The logger is called through a local reference, and the adapter is not touched afterwards: the call may replace the
// facility, and with it this adapter.
void deliver(JNIEnv* env, const LoggerAdapter& adapter, std::string_view text) {
    const jmethodID writeMethod = adapter.writeMethod;
    jthrowable pending = env->ExceptionOccurred();
    env->ExceptionClear();
    jobject logger = env->NewLocalRef(adapter.logger);
    jstring line = logger == nullptr ? nullptr : newJavaString(env, text);
    if (line != nullptr && env->ExceptionCheck() == JNI_FALSE) {
        env->CallVoidMethod(logger, writeMethod, WRITE_LEVEL, line);
    }
    env->ExceptionClear();
    env->DeleteLocalRef(line);
    env->DeleteLocalRef(logger);
    if (pending != nullptr) {
        env->Throw(pending);
        env->DeleteLocalRef(pending);
    }
}

TABULO_PRINTF(2, 0) void adapter_write(LogChannel* channel, const char* format, std::va_list arguments) {
    const auto* adapter = static_cast<const LoggerAdapter*>(channel);
    JNIEnv* env = environmentOf(adapter->vm);
    if (env == nullptr) {
        return;
    }
    std::array<char, LINE_BUFFER> buffer{};
    const int wanted = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    std::string_view text(buffer.data());
    if (wanted >= static_cast<int>(LINE_BUFFER)) {
        text = text.substr(0, modifiedUtf8_wholeLength(text));
    }
    deliver(env, *adapter, text);
}

void bridge_release(LogFacility* facility) {
    auto* bridge = static_cast<LogBridge*>(facility);
    for (LogChannel* channel : {bridge->debug, bridge->info, bridge->warning, bridge->error}) {
        if (channel != nullptr) {
            channel->release(channel);
        }
    }
    delete bridge;
}

// The facility's logger for one level, as a local reference; null when there is none.
jobject loggerOf(JNIEnv* env, jobject facilityObject, const char* level) {
    jclass facilityClass = env->FindClass(FACILITY_CLASS);
    if (checkJavaException(env) != NO_ERROR || facilityClass == nullptr) {
        return nullptr;
    }
    jobject logger = nullptr;
    if (env->IsInstanceOf(facilityObject, facilityClass) == JNI_TRUE) {
        const jmethodID method = env->GetMethodID(facilityClass, level, "()Lcom/corvane/util/log/ILogger;");
        if (checkJavaException(env) == NO_ERROR && method != nullptr) {
            logger = env->CallObjectMethod(facilityObject, method);
        }
    }
    env->DeleteLocalRef(facilityClass);
    return checkJavaException(env) == NO_ERROR ? logger : nullptr;
}

ErrorCode buildAdapter(JNIEnv* env, jobject facilityObject, const char* level, LogChannel** channel) {
    std::unique_ptr<LoggerAdapter> adapter(new (std::nothrow) LoggerAdapter);
    if (adapter == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    adapter->release = adapter_release;
    adapter->write = adapter_write;
    if (env->GetJavaVM(&adapter->vm) != JNI_OK) {
        return JNI_ERROR;
    }
    jobject logger = loggerOf(env, facilityObject, level);
    if (logger == nullptr) {
        return JNI_ERROR;
    }
    jclass loggerClass = env->FindClass(LOGGER_CLASS);
    if (checkJavaException(env) == NO_ERROR && loggerClass != nullptr) {
        if (env->IsInstanceOf(logger, loggerClass) == JNI_TRUE) {
            adapter->writeMethod = env->GetMethodID(loggerClass, "write", "(ILjava/lang/Object;)V");
        }
        env->DeleteLocalRef(loggerClass);
    }
    if (checkJavaException(env) == NO_ERROR && adapter->writeMethod != nullptr) {
        adapter->logger = env->NewGlobalRef(logger);
    }
    env->DeleteLocalRef(logger);
    if (adapter->logger == nullptr) {
        return JNI_ERROR;
    }
    *channel = adapter.release();
    return NO_ERROR;
}

}  // namespace

ErrorCode logBridge_create(JNIEnv* env, jobject facilityObject, LogFacility** facility) noexcept {
    *facility = nullptr;
    if (facilityObject == nullptr) {
        return NULL_POINTER_ERROR;
    }
    auto* bridge = new (std::nothrow) LogBridge{};
    if (bridge == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    bridge->release = bridge_release;
    ErrorCode code = buildAdapter(env, facilityObject, "debug", &bridge->debug);
    if (code == NO_ERROR) {
        code = buildAdapter(env, facilityObject, "info", &bridge->info);
    }
    if (code == NO_ERROR) {
        code = buildAdapter(env, facilityObject, "warning", &bridge->warning);
    }
    if (code == NO_ERROR) {
        code = buildAdapter(env, facilityObject, "error", &bridge->error);
    }
    if (code != NO_ERROR) {
        bridge_release(bridge);
        return code;
    }
    *facility = bridge;
    return NO_ERROR;
}

}  // namespace tabulo::internal
