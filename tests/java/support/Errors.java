package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;

import org.junit.jupiter.api.Assertions;
import org.junit.jupiter.api.function.Executable;

/** What the library's exceptions carry. */
final class Errors {
    private static final String[] TEXTS = {
        "Unknown error",
        "Out of memory",
        "Null pointer",
        "Attempting to perform read/write operations on a closed (not opened) table",
        "System file routine failed",
        "Invalid table signature. A table might be corrupted or created with previous Tabulo version"
                + " (or this is not a Tabulo table)",
        "Size of a table file is less than expected",
        "Table file is unrecoverable",
        "Wrong parameter",
        "Table type mismatch: trying to open a session info table as a message table or vice versa"
                + " (or table might be corrupted)",
        "Unable to open a table file. The file might not exist or process might not have permission",
        "I/O error: unable to perform file seek",
        "I/O error: unable to read from a file",
        "I/O error: unable to write to a file",
        "I/O error: unable to truncate a file",
        "Unable to open a table file created on a system with a different byte order",
        "I/O error: unable to flush a file",
        "Internal error: virtual seek position is out of range",
        "Read message failed consistency check. A table is possibly corrupted",
        "Unable to write to a table opened in read-only mode",
        "Index out of bounds",
        "JNI error",
        "Internal error: no data",
        "Unable to open a table created by different version of Tabulo",
        "Table's header is corrupted",
        "Not implemented",
        "Internal byte stream error: not enough data",
        "Internal byte stream error: extension failed",
        "Internal byte stream error: invalid read reset",
        "Internal byte stream error: invalid write reset",
        "Attempting to perform operations on a closed iterator",
        "Master file is inactive",
        "Number of configured string fields exceeds limit",
        "Number of configured numeric fields exceeds limit",
        "Number of string fields does not match number of fields stored in table's configuration",
        "Number of numeric fields does not match number of fields stored in table's configuration",
        "Names of string fields do not match names of fields stored in table's configuration",
        "Names of numeric fields do not match names of fields stored in table's configuration",
        "Unable to open a table created with different configuration",
    };

    private Errors() {
    }

    static String text(int code) {
        return TEXTS[code];
    }

    /** The call throws the library's exception with exactly this code and its text. */
    static void assertFails(int code, Executable call) {
        assertFails(code, "", call);
    }

    static void assertFails(int code, String what, Executable call) {
        JNITboException thrown = Assertions.assertThrows(JNITboException.class, call, what);
        assertEquals(code, thrown.getErrorCode(), () -> what + " threw another code: " + thrown.getMessage());
        assertNotNull(thrown.getMessage(), "the exception carries a text");
        assertEquals(text(code), thrown.getMessage(), "the exception carries the code's text");
    }
}
