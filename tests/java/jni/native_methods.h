// Binds the native methods of the Java peers to the binding that is linked into the test program.
#pragma once

#include <jni.h>

namespace tabulo::internal::test {

// True when it is done; false with an exception pending.
bool nativeMethods_register(JNIEnv* env);

}  // namespace tabulo::internal::test
