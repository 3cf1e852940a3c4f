package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import java.nio.file.Path;

/**
 * The file is not a table, is cut, or holds what contradicts itself. Messages in front of the damage were delivered
 * before this was thrown; docs/reliability.md says what can be saved.
 */
public final class TabuloDamagedException extends TabuloException {
    private static final long serialVersionUID = 1L;

    TabuloDamagedException(JNITboException failed, Path file) {
        super(failed, file);
    }
}
