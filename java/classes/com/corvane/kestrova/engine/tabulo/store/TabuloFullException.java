package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import java.nio.file.Path;

/**
 * The disk, a quota or the file-size limit is exhausted. The message is not stored, and all others are; store it again
 * when there is space.
 */
public final class TabuloFullException extends TabuloException {
    private static final long serialVersionUID = 1L;

    TabuloFullException(JNITboException failed, Path file) {
        super(failed, file);
    }
}
