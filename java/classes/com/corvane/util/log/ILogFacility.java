package com.corvane.util.log;

/**
 * Gives the library its four loggers, see
 * {@link com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader#setLogFacility(Object)}.
 *
 * <p>All four methods are called once each, when the facility is installed; none may return null, or the facility is
 * not installed. The library keeps the loggers until another facility replaces this one or the library is
 * uninitialised.
 */
public interface ILogFacility {
    /**
     * The logger for debug lines; the library asks for it, but writes its debug lines to its own file only.
     *
     * @return the logger, not null
     */
    ILogger debug();

    /**
     * The logger for notes.
     *
     * @return the logger, not null
     */
    ILogger info();

    /**
     * The logger for warnings.
     *
     * @return the logger, not null
     */
    ILogger warning();

    /**
     * The logger for errors; the library asks for it, but reports errors as exceptions only.
     *
     * @return the logger, not null
     */
    ILogger error();
}
