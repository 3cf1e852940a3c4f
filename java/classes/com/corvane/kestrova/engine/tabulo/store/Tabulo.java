package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import java.nio.file.Path;
import java.util.Objects;

/**
 * The library as a whole: loading it, and what holds for all tables of the process.
 *
 * <p>Any thread may call these methods. {@link #sync(SyncPolicy)} and {@link #logTo(System.Logger)} change what other
 * threads are using: call them before tables are used.
 */
public final class Tabulo {
    /** The name of the {@link System.Logger} that {@link #load()} gives the library's notes and warnings to. */
    public static final String LOGGER_NAME = "com.corvane.kestrova.engine.tabulo";

    private static boolean isLoaded;

    private Tabulo() {
    }

    /**
     * Loads the native library from where {@link JNITboLibLoader#load()} finds it, and begins to log to the
     * {@link System.Logger} named {@value #LOGGER_NAME}. Once it is loaded, calling this again does nothing.
     *
     * @throws UnsatisfiedLinkError when the library is not found or cannot be loaded
     */
    public static synchronized void load() {
        if (!isLoaded) {
            JNITboLibLoader.load();
            begin();
        }
    }

    /**
     * Loads the native library from a file, otherwise as {@link #load()} does. Once it is loaded, from wherever,
     * calling this again does nothing.
     *
     * @param library path of {@code libtabulo.so}; a relative one is taken from the working directory
     * @throws UnsatisfiedLinkError when the file is missing or cannot be loaded
     */
    public static synchronized void load(Path library) {
        Objects.requireNonNull(library, "library");
        if (!isLoaded) {
            JNITboLibLoader.load(library);
            begin();
        }
    }

    /**
     * Sends the library's notes (level DEBUG) and warnings (level WARNING) to a logger, from now on and instead of the
     * one before. One line of the library's is one record.
     *
     * @param logger takes the lines, on the threads that use the library and in the middle of their calls: it must not
     *        close a table; what it throws is dropped
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static void logTo(System.Logger logger) {
        JNITboLibLoader.setLogFacility(new SystemLog(Objects.requireNonNull(logger, "logger")));
    }

    /**
     * Sets when stored messages are forced to the disk, for all tables of the process and from the next message on.
     * Until this is called it is {@link SyncPolicy#off()}.
     *
     * @param policy when to commit
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static void sync(SyncPolicy policy) {
        policy.apply();
    }

    private static void begin() {
        JNITboLibLoader.initLibrary();
        logTo(System.getLogger(LOGGER_NAME));
        isLoaded = true;
    }
}
