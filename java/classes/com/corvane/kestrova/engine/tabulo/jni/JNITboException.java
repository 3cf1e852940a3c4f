package com.corvane.kestrova.engine.tabulo.jni;

/** What every failed operation of the library throws: an error code and its text. */
public final class JNITboException extends RuntimeException {
    private static final long serialVersionUID = 1L;

    /** One of {@link JNITboErrorCodes}. */
    private final int errorCode;

    private JNITboException(int errorCode, String message) {
        super(message);
        this.errorCode = errorCode;
    }

    /**
     * Makes the exception for an error of the library; the library calls this.
     *
     * @param errorCode one of {@link JNITboErrorCodes}
     * @param message the code's text
     * @return the exception, not thrown yet
     */
    public static JNITboException createUnderlyingError(int errorCode, String message) {
        return new JNITboException(errorCode, message);
    }

    static JNITboException tableClosed() {
        return new JNITboException(JNITboErrorCodes.TABLE_CLOSED_ERROR,
                "Attempting to perform read/write operations on a closed (not opened) table");
    }

    static JNITboException wrongParameter() {
        return new JNITboException(JNITboErrorCodes.WRONG_PARAMETER_ERROR, "Wrong parameter");
    }

    static JNITboException iteratorClosed() {
        return new JNITboException(JNITboErrorCodes.ITERATOR_CLOSED_ERROR,
                "Attempting to perform operations on a closed iterator");
    }

    static JNITboException watcherClosed() {
        return new JNITboException(JNITboErrorCodes.NULL_POINTER_ERROR, "Attempting to watch with a closed watcher");
    }

    /**
     * The error's code.
     *
     * @return one of {@link JNITboErrorCodes}
     */
    public int getErrorCode() {
        return errorCode;
    }
}
