package com.corvane.kestrova.engine.tabulo.jni;

/** Why the library could not be had from one of the places where it may be, and what to do about that. */
final class NativeLibraryException extends Exception {
    private static final long serialVersionUID = 1L;

    private final String advice;

    NativeLibraryException(String why, String advice) {
        this(why, advice, null);
    }

    NativeLibraryException(String why, String advice, Throwable cause) {
        super(why, cause);
        this.advice = advice;
    }

    /** What helps, with the property that does. */
    String advice() {
        return advice;
    }
}
