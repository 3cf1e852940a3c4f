package com.corvane.kestrova.engine.tabulo.jni;

/** The error codes of the library, as {@link JNITboException#getErrorCode()} gives them. Their numbers never change. */
public final class JNITboErrorCodes {
    /** No error; never thrown. */
    public static final int NO_ERROR = 0;
    /** Memory ran out. */
    public static final int OUT_OF_MEMORY_ERROR = 1;
    /** Something that must be given is null. */
    public static final int NULL_POINTER_ERROR = 2;
    /** The table is closed. */
    public static final int TABLE_CLOSED_ERROR = 3;
    /** The operating system refused an operation on a file, for example its close. */
    public static final int SYSTEM_FILE_ERROR = 4;
    /** The file does not begin as a table of this library: it is another kind of file, or its start is damaged. */
    public static final int SIGNATURE_ERROR = 5;
    /** The file is too short to tell what it is: empty, when it is opened for reading, or cut in its first bytes. */
    public static final int FILE_SIZE_ERROR = 6;
    /** The file cannot be repaired. */
    public static final int UNRECOVERABLE_ERROR = 7;
    /** A parameter is out of its range. */
    public static final int WRONG_PARAMETER_ERROR = 8;
    /** The file holds the other type of table. */
    public static final int TABLE_TYPE_ERROR = 9;
    /** The file cannot be opened: it is missing, not permitted, or open for writing elsewhere. */
    public static final int FILE_OPEN_ERROR = 10;
    /** The system refused to move within the file. */
    public static final int FILE_SEEK_ERROR = 11;
    /** The system refused to read the file. */
    public static final int FILE_READ_ERROR = 12;
    /** The system refused to write the file, or no file is left to write to. */
    public static final int FILE_WRITE_ERROR = 13;
    /** The system refused to cut the file. */
    public static final int FILE_TRUNCATE_ERROR = 14;
    /** The file was created on a machine of the other byte order. */
    public static final int BYTE_ORDER_ERROR = 15;
    /** The system refused bytes that were to be flushed to the file. */
    public static final int FILE_FLUSH_ERROR = 16;
    /** A position in a file is out of range. */
    public static final int VSEEK_ERROR = 17;
    /** A stored message contradicts itself; the file is damaged. */
    public static final int CONSISTENCY_ERROR = 18;
    /** The table is open for reading only. */
    public static final int READ_ONLY_ERROR = 19;
    /** An index is out of bounds. */
    public static final int INDEX_OUT_OF_BOUNDS_ERROR = 20;
    /** A call between Java and the library failed, for example because a listener threw; it was printed. */
    public static final int JNI_ERROR = 21;
    /** There is no data where some was asked for, or data ends within a message that must be whole. */
    public static final int NO_DATA_ERROR = 22;
    /** The file was created by another version of the library. */
    public static final int VERSION_ERROR = 23;
    /** The file's header or a block's footer is damaged. */
    public static final int HEADER_CORRUPTED_ERROR = 24;
    /** The operation or a kind of argument, as a numeric filter on neither doubles nor longs, is not built. */
    public static final int NOT_IMPLEMENTED_ERROR = 25;
    /** Encoded data ended too early. */
    public static final int STREAM_NOT_ENOUGH_DATA_ERROR = 26;
    /** Encoded data became too long. */
    public static final int STREAM_EXTENSION_ERROR = 27;
    /** A read position in encoded data is out of range. */
    public static final int STREAM_READ_RESET_ERROR = 28;
    /** A write position in encoded data is out of range. */
    public static final int STREAM_WRITE_RESET_ERROR = 29;
    /** The iterator is closed. */
    public static final int ITERATOR_CLOSED_ERROR = 30;
    /** The table's master file is not open, for example after a failed write. */
    public static final int MASTER_INACTIVE_ERROR = 31;
    /** More than 12 indexed string fields. */
    public static final int STRING_FIELDS_LIMIT_ERROR = 32;
    /** More than 16 indexed numeric fields. */
    public static final int NUMERIC_FIELDS_LIMIT_ERROR = 33;
    /** Another number of string fields than the table has. */
    public static final int STRING_FIELDS_COUNT_MISMATCH_ERROR = 34;
    /** Another number of numeric fields than the table has. */
    public static final int NUMERIC_FIELDS_COUNT_MISMATCH_ERROR = 35;
    /** Other names of string fields than the table has. */
    public static final int STRING_FIELDS_NAMES_MISMATCH_ERROR = 36;
    /** Other names of numeric fields than the table has. */
    public static final int NUMERIC_FIELDS_NAMES_MISMATCH_ERROR = 37;
    /** The table was created with another configuration. */
    public static final int CONFIG_MISMATCH_ERROR = 38;

    private static final String[] NAMES = {
        "NO_ERROR", "OUT_OF_MEMORY_ERROR", "NULL_POINTER_ERROR", "TABLE_CLOSED_ERROR", "SYSTEM_FILE_ERROR",
        "SIGNATURE_ERROR", "FILE_SIZE_ERROR", "UNRECOVERABLE_ERROR", "WRONG_PARAMETER_ERROR", "TABLE_TYPE_ERROR",
        "FILE_OPEN_ERROR", "FILE_SEEK_ERROR", "FILE_READ_ERROR", "FILE_WRITE_ERROR", "FILE_TRUNCATE_ERROR",
        "BYTE_ORDER_ERROR", "FILE_FLUSH_ERROR", "VSEEK_ERROR", "CONSISTENCY_ERROR", "READ_ONLY_ERROR",
        "INDEX_OUT_OF_BOUNDS_ERROR", "JNI_ERROR", "NO_DATA_ERROR", "VERSION_ERROR", "HEADER_CORRUPTED_ERROR",
        "NOT_IMPLEMENTED_ERROR", "STREAM_NOT_ENOUGH_DATA_ERROR", "STREAM_EXTENSION_ERROR", "STREAM_READ_RESET_ERROR",
        "STREAM_WRITE_RESET_ERROR", "ITERATOR_CLOSED_ERROR", "MASTER_INACTIVE_ERROR", "STRING_FIELDS_LIMIT_ERROR",
        "NUMERIC_FIELDS_LIMIT_ERROR", "STRING_FIELDS_COUNT_MISMATCH_ERROR", "NUMERIC_FIELDS_COUNT_MISMATCH_ERROR",
        "STRING_FIELDS_NAMES_MISMATCH_ERROR", "NUMERIC_FIELDS_NAMES_MISMATCH_ERROR", "CONFIG_MISMATCH_ERROR"
    };

    private JNITboErrorCodes() {
    }

    /** The name of a code's constant here, or "UNKNOWN_ERROR". */
    static String nameOf(int code) {
        return code >= 0 && code < NAMES.length ? NAMES[code] : "UNKNOWN_ERROR";
    }
}
