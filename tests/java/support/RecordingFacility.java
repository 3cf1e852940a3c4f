package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.util.log.ILogFacility;
import com.corvane.util.log.ILogger;
import java.util.ArrayList;
import java.util.List;

/** Keeps every piece that the library writes, by level. */
class RecordingFacility implements ILogFacility {
    final List<Piece> pieces = new ArrayList<>();
    final List<String> asked = new ArrayList<>();

    /** One call of a logger. */
    record Piece(String level, int argument, Object text) {
    }

    @Override
    public ILogger debug() {
        return logger("debug");
    }

    @Override
    public ILogger info() {
        return logger("info");
    }

    @Override
    public ILogger warning() {
        return logger("warning");
    }

    @Override
    public ILogger error() {
        return logger("error");
    }

    ILogger logger(String level) {
        asked.add(level);
        return (argument, text) -> pieces.add(new Piece(level, argument, text));
    }

    /** The pieces of a level one behind the other. */
    String text(String level) {
        StringBuilder text = new StringBuilder();
        pieces.stream().filter(piece -> piece.level().equals(level)).forEach(piece -> text.append(piece.text()));
        return text.toString();
    }

    String warnings() {
        return text("warning");
    }

    String notes() {
        return text("info");
    }
}
