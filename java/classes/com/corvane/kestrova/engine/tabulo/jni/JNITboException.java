package com.corvane.kestrova.engine.tabulo.jni;

/**
 * What every failed operation of the library throws: an error code and its text, and what is known besides: the table,
 * its file, and in words of the system and of the library what went wrong. When a listener, a configuration provider,
 * conditions or another object of the caller's threw, that is the cause.
 */
public final class JNITboException extends RuntimeException {
    private static final long serialVersionUID = 2L;

    /** One of {@link JNITboErrorCodes}. */
    private final int errorCode;
    /** See {@link #getDetail()}. */
    private String detail;
    /** See {@link #getTable()}. */
    private String table;
    /** See {@link #getPath()}. */
    private String path;

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

    /** Adds where it happened, unless that is known already. */
    JNITboException at(TableName where) {
        if (table == null && path == null) {
            table = where.table();
            path = where.path();
        }
        return this;
    }

    /**
     * Stores what is known of the error besides its code; the library calls this.
     *
     * @param detail words for whoever looks for the reason
     */
    public void setDetail(String detail) {
        this.detail = detail;
    }

    /**
     * What is known of the error besides its code: the operation that the system refused, with its file and the
     * system's own words, and the warnings that the library wrote during the call. The words are for people; they may
     * change.
     *
     * @return the words, or null when there are none
     */
    public String getDetail() {
        return detail;
    }

    /**
     * The error's code.
     *
     * @return one of {@link JNITboErrorCodes}
     */
    public int getErrorCode() {
        return errorCode;
    }

    /**
     * The name of the error's code.
     *
     * @return the name of a constant of {@link JNITboErrorCodes}, or "UNKNOWN_ERROR"
     */
    public String getErrorName() {
        return JNITboErrorCodes.nameOf(errorCode);
    }

    /**
     * The table that the operation was about.
     *
     * @return its name, or null when that is not known, as for a watch on several tables
     */
    public String getTable() {
        return table;
    }

    /**
     * The file of the table that the operation was about.
     *
     * @return its path, as it was configured, or null when that is not known
     */
    public String getPath() {
        return path;
    }

    /**
     * The message with all that is known besides.
     *
     * @return class and message, code, table, path and detail
     */
    @Override
    public String toString() {
        StringBuilder text = new StringBuilder(super.toString());
        text.append(" (").append(errorCode).append(' ').append(getErrorName()).append(')');
        if (table != null) {
            text.append(", table ").append(table);
        }
        if (path != null) {
            text.append(", path ").append(path);
        }
        if (detail != null) {
            text.append(": ").append(detail);
        }
        return text.toString();
    }
}
