package com.corvane.kestrova.examples;

import com.corvane.util.log.ILogFacility;
import com.corvane.util.log.ILogger;

/** Prints the library's warnings among the demo's own lines, and nothing else of what it logs. */
final class DemoLog implements ILogFacility {
    private static final ILogger SILENT = (level, text) -> {
    };

    /** A warning comes in pieces; the first one is its prefix, and the last one brings the line's end. */
    private static final ILogger PRINTED = (level, text) -> {
        String piece = text.toString();
        System.out.print(piece.startsWith("Tabulo/C") ? "   [library] " + piece : piece);
    };

    @Override
    public ILogger debug() {
        return SILENT;
    }

    @Override
    public ILogger info() {
        return SILENT;
    }

    @Override
    public ILogger warning() {
        return PRINTED;
    }

    @Override
    public ILogger error() {
        return SILENT;
    }
}
