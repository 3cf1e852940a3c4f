package com.corvane.kestrova.engine.tabulo.jni;

/** What the tests' own callbacks throw into the library; without a stack, since the library prints it. */
final class OnPurpose extends RuntimeException {
    private static final long serialVersionUID = 1L;

    OnPurpose(String by) {
        super("thrown on purpose by " + by, null, false, false);
    }
}
