package com.corvane.kestrova.engine.tabulo.jni;

/** How a table may be opened through the peers. */
final class OpenMode {
    private OpenMode() {
    }

    /** Lets nothing through but reading and writing: mode 2 of the library would empty the table. */
    static void check(int mode) {
        if (mode != JNITboMessageTable.MODE_READ && mode != JNITboMessageTable.MODE_WRITE) {
            throw JNITboException.wrongParameter();
        }
    }
}
