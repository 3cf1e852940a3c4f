package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes;
import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import java.nio.file.Path;
import java.util.Optional;

/**
 * What every failed operation of this package throws: the code's name, the table, its file, and in words of the system
 * and the library what went wrong. {@link TabuloLockedException}, {@link TabuloDamagedException} and
 * {@link TabuloFullException} are those that a program may want to tell apart.
 *
 * <p>What to do after each code is in docs/reliability.md. The cause is the {@link JNITboException} behind it, or the
 * exception of the caller's own code that ended the operation.
 */
public class TabuloException extends RuntimeException {
    private static final long serialVersionUID = 1L;

    /** One of {@link JNITboErrorCodes}. */
    private final int code;
    /** The name of the code. */
    private final String codeName;
    /** The table's name, or null. */
    private final String table;
    /** The path of the table's file, or null. */
    private final String path;
    /** What is known besides, or null. */
    private final String detail;

    TabuloException(JNITboException failed, Path file) {
        super(failed.getMessage(), failed);
        code = failed.getErrorCode();
        codeName = failed.getErrorName();
        Path name = file == null ? null : file.getFileName();
        table = failed.getTable() != null ? failed.getTable() : name == null ? null : name.toString();
        path = failed.getPath() != null ? failed.getPath() : file == null ? null : file.toString();
        detail = failed.getDetail();
    }

    /** The exception for a failure; the file, which may be null, is for one that does not name its table. */
    static TabuloException of(JNITboException failed, Path file) {
        String detail = failed.getDetail() == null ? "" : failed.getDetail();
        return switch (failed.getErrorCode()) {
            case JNITboErrorCodes.FILE_OPEN_ERROR -> detail.contains("open for writing")
                    ? new TabuloLockedException(failed, file) : new TabuloException(failed, file);
            case JNITboErrorCodes.FILE_WRITE_ERROR, JNITboErrorCodes.FILE_FLUSH_ERROR ->
                // What a full disk, a quota and a file-size limit are called.
                detail.contains("the disk is full") || detail.contains("File too large")
                        ? new TabuloFullException(failed, file) : new TabuloException(failed, file);
            case JNITboErrorCodes.SIGNATURE_ERROR, JNITboErrorCodes.FILE_SIZE_ERROR,
                JNITboErrorCodes.UNRECOVERABLE_ERROR, JNITboErrorCodes.VSEEK_ERROR,
                JNITboErrorCodes.CONSISTENCY_ERROR, JNITboErrorCodes.NO_DATA_ERROR,
                JNITboErrorCodes.HEADER_CORRUPTED_ERROR, JNITboErrorCodes.STREAM_NOT_ENOUGH_DATA_ERROR,
                JNITboErrorCodes.STREAM_READ_RESET_ERROR -> new TabuloDamagedException(failed, file);
            default -> new TabuloException(failed, file);
        };
    }

    /** The exception for a failure that is found here and not by the library. */
    static TabuloException of(int code, String text, Path file, String detail) {
        JNITboException failed = JNITboException.createUnderlyingError(code, text);
        failed.setDetail(detail);
        return of(failed, file);
    }

    /** The exception for the use of what is closed. */
    static TabuloException closed(Path file) {
        return of(JNITboErrorCodes.TABLE_CLOSED_ERROR,
                "Attempting to perform read/write operations on a closed (not opened) table", file, null);
    }

    /**
     * The error's code.
     *
     * @return one of {@link JNITboErrorCodes}
     */
    public int code() {
        return code;
    }

    /**
     * The name of the error's code.
     *
     * @return the name of a constant of {@link JNITboErrorCodes}
     */
    public String codeName() {
        return codeName;
    }

    /**
     * The table that the operation was about.
     *
     * @return its name; empty when there is none in particular, as for a watch on several tables
     */
    public Optional<String> table() {
        return Optional.ofNullable(table);
    }

    /**
     * The file of the table that the operation was about.
     *
     * @return its path; empty when there is none in particular
     */
    public Optional<Path> path() {
        return Optional.ofNullable(path).map(Path::of);
    }

    /**
     * What is known besides the code: what the system refused, in its own words, and the library's warnings.
     *
     * @return words for people, which may change
     */
    public Optional<String> detail() {
        return Optional.ofNullable(detail);
    }

    /**
     * All that is known.
     *
     * @return class, text of the code, its number and name, table, path and detail
     */
    @Override
    public String toString() {
        return super.toString() + " (" + code + ' ' + codeName + ')' + (table == null ? "" : ", table " + table)
                + (path == null ? "" : ", path " + path) + (detail == null ? "" : ": " + detail);
    }
}
