package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.util.log.ILogFacility;
import com.corvane.util.log.ILogger;
import java.nio.file.Path;

/**
 * Loads the native library and sets what holds for the whole process.
 *
 * <p>An engine calls, in this order and once: one of the load methods, {@link #initLibrary()}, then, when it wants
 * them, {@link #setLogFacility(Object)} and {@link #setDoSyncToDisk(boolean, int, int)}; at its end {@link
 * #uninitLibrary()}. The settings are unguarded: make them before tables are used by other threads.
 */
public final class JNITboLibLoader {
    private JNITboLibLoader() {
    }

    /**
     * Loads the library from the first place that has it:
     *
     * <ol>
     * <li>the file that the system property {@code library}, behind the prefix {@code tabulo.}, names; when it is set and
     * that file cannot be loaded, no other place is tried;
     * <li>the virtual machine's library path;
     * <li>the jar itself, which brings {@code libtabulo.so} for Linux with glibc on x86-64 and aarch64. It is extracted
     * to {@code tabulo-<user id>-<version>-<hash>/} below the directory that the system property {@code tabulo.tmpdir}
     * names, else below {@code java.io.tmpdir}. Only the user may enter it. What an earlier virtual machine has left
     * there is checked and used again; what other versions have left is removed when nobody uses it any more.
     * </ol>
     *
     * <p>Once the library is loaded, by this or by the other methods, this does nothing.
     *
     * @throws UnsatisfiedLinkError when no place gives it: its message says why, which property helps, and what was
     *         tried
     */
    public static void load() {
        NativeLibrary.load();
    }

    /**
     * Loads the library from a file.
     *
     * @param libraryFile path of {@code libtabulo.so}; a relative one is taken from the working directory
     * @throws UnsatisfiedLinkError when the file is missing or cannot be loaded
     */
    public static void load(Path libraryFile) {
        NativeLibrary.load(libraryFile);
    }

    /**
     * Loads the library from a file.
     *
     * @param libraryFile path of {@code libtabulo.so}; a relative one is taken from the working directory
     * @throws UnsatisfiedLinkError when the file is missing or cannot be loaded
     */
    public static void load(String libraryFile) {
        load(Path.of(libraryFile));
    }

    /**
     * Prepares the library: raises the process's limit of open files to at least 2048 where it is lower, makes the
     * system report a file that has reached its size limit as an error instead of ending the process, and begins the
     * debug log {@code tabulo-<process id>.log} in the working directory.
     */
    public static native void initLibrary();

    /** Lets go of the log facility; from then on notes and warnings are dropped. Open tables stay open. */
    public static native void uninitLibrary();

    /**
     * Sends the library's notes and warnings to a facility, instead of the one installed before.
     *
     * <p>Nothing is thrown: when the facility is null, is none, lacks a level or gives a null logger, all stays as it
     * was. Before the first facility is installed, warnings go to standard error and notes nowhere.
     *
     * @param facility a {@link com.corvane.util.log.ILogFacility}
     */
    public static native void setLogFacility(Object facility);

    /**
     * Sends the library's notes and warnings to a facility, instead of the one installed before, and checks it first.
     *
     * @param facility gives the four loggers; asked once for each
     * @throws IllegalArgumentException when the facility or one of its loggers is null; all then stays as it was
     */
    public static void setLogFacility(ILogFacility facility) {
        if (facility == null) {
            throw new IllegalArgumentException("the log facility is null");
        }
        Object checked = new Loggers(given("debug", facility.debug()), given("info", facility.info()),
                given("warning", facility.warning()), given("error", facility.error()));
        try {
            setLogFacility(checked);
        } catch (UnsatisfiedLinkError notLoaded) {
            throw explained(notLoaded);
        }
    }

    /** Loggers that are there. */
    private record Loggers(ILogger debug, ILogger info, ILogger warning, ILogger error) implements ILogFacility {
    }

    private static ILogger given(String level, ILogger logger) {
        if (logger == null) {
            throw new IllegalArgumentException("the log facility has no logger for the level " + level);
        }
        return logger;
    }

    /** What a use before loading says; the library may have been loaded without us, so that only the error tells. */
    static UnsatisfiedLinkError explained(UnsatisfiedLinkError notLoaded) {
        UnsatisfiedLinkError explained = new UnsatisfiedLinkError("the library is not loaded: call"
                + " JNITboLibLoader.load() or load(path of libtabulo.so), and JNITboLibLoader.initLibrary(), first ("
                + notLoaded.getMessage() + ")");
        explained.initCause(notLoaded);
        return explained;
    }

    /**
     * Sets when written data is forced to the disk; it holds for every later flush of every table. At the start it is
     * off: then a message that was stored survives the end of the process, however it ends, but not the loss of power.
     *
     * <p>With {@code doSync}, a flush (one for each stored message) is followed by a physical sync of the file when
     * the interval has passed since the last one, or when at least <em>twice</em> the given count of flushes happened
     * since; and after every flush when both are 0.
     *
     * <p>A sync happens inside a flush and when a table is closed, at no other time: with an interval or a count, the
     * last message before a pause waits for the next one. A sync that the system reports as failed is ignored. Each
     * one inside a flush adds a line to the debug log.
     *
     * @param doSync whether to force data to the disk at all
     * @param syncIntervalSeconds seconds between syncs; 0 for no interval
     * @param syncFlushCount half the number of flushes between syncs; 0 for no count
     */
    public static native void setDoSyncToDisk(boolean doSync, int syncIntervalSeconds, int syncFlushCount);
}
