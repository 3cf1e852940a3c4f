package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import java.nio.file.Path;

/**
 * The table is open for writing elsewhere, in another process or in this one. Nothing was touched; try again when the
 * other writer has closed it or has ended.
 */
public final class TabuloLockedException extends TabuloException {
    private static final long serialVersionUID = 1L;

    TabuloLockedException(JNITboException failed, Path file) {
        super(failed, file);
    }
}
