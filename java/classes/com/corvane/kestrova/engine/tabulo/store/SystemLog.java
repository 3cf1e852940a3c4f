package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.util.log.ILogFacility;
import com.corvane.util.log.ILogger;

/** Puts the pieces in which the library logs together to lines, and gives each line to a system logger. */
final class SystemLog implements ILogFacility {
    private final System.Logger logger;

    SystemLog(System.Logger logger) {
        this.logger = logger;
    }

    /** The pieces of one line come one after the other on one thread; other threads may log between them. */
    private final class Lines implements ILogger {
        private final System.Logger.Level level;
        private final ThreadLocal<StringBuilder> begun = ThreadLocal.withInitial(StringBuilder::new);

        Lines(System.Logger.Level level) {
            this.level = level;
        }

        @Override
        public void write(int levelOfLibrary, Object text) {
            if (!logger.isLoggable(level)) {
                return;
            }
            StringBuilder line = begun.get().append(text);
            if (line.length() > 0 && line.charAt(line.length() - 1) == '\n') {
                String whole = line.toString().stripTrailing();
                line.setLength(0);
                logger.log(level, whole);
            }
        }
    }

    @Override
    public ILogger debug() {
        return new Lines(System.Logger.Level.DEBUG);
    }

    @Override
    public ILogger info() {
        // What the library notes is of interest to who looks for a fault: several lines whenever a table is opened.
        return new Lines(System.Logger.Level.DEBUG);
    }

    @Override
    public ILogger warning() {
        return new Lines(System.Logger.Level.WARNING);
    }

    @Override
    public ILogger error() {
        return new Lines(System.Logger.Level.ERROR);
    }
}
