package com.corvane.kestrova.engine.tabulo.jni;

import java.util.ArrayList;
import java.util.List;
import java.util.ResourceBundle;

/** A system logger that keeps what it is given. */
final class RecordingLogger implements System.Logger {
    private final List<String> records = new ArrayList<>();

    synchronized List<String> records() {
        return List.copyOf(records);
    }

    @Override
    public String getName() {
        return "recording";
    }

    @Override
    public boolean isLoggable(Level level) {
        return true;
    }

    @Override
    public void log(Level level, String message) {
        log(level, null, message, (Object[]) null);
    }

    @Override
    public void log(Level level, ResourceBundle bundle, String message, Throwable thrown) {
        log(level, bundle, message);
    }

    @Override
    public synchronized void log(Level level, ResourceBundle bundle, String format, Object... params) {
        records.add(level + ": " + format);
    }
}
