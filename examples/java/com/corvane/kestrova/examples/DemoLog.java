package com.corvane.kestrova.examples;

import java.util.ResourceBundle;

/** Prints the library's warnings among the demo's own lines, and nothing else of what it logs. */
final class DemoLog implements System.Logger {
    @Override
    public String getName() {
        return "demo";
    }

    @Override
    public boolean isLoggable(Level level) {
        return level.compareTo(Level.WARNING) >= 0;
    }

    @Override
    public void log(Level level, ResourceBundle bundle, String message, Throwable thrown) {
        log(level, bundle, message);
    }

    @Override
    public void log(Level level, ResourceBundle bundle, String format, Object... parameters) {
        if (isLoggable(level)) {
            System.out.println("   [library] " + format);
        }
    }
}
