package com.corvane.kestrova.engine.tabulo;

/** A string field that every message has besides the configured ones; what a string filter may also address. */
public enum MessageStringField {
    /** The first leading built-in string. The engine decides what it holds; its values are summarised per block. */
    BUILT_IN_0,
    /** The second leading built-in string. The engine decides what it holds; its values are summarised per block. */
    BUILT_IN_1,
    /** The wire message. */
    WIRE_MESSAGE,
    /** The message's fields without its metadata. */
    NON_METADATA_FIELDS,
    /**
     * The MsgType, compared over its first five characters and with regard to case, also by a filter that disregards it
     * elsewhere; a message always has one.
     */
    MSG_TYPE
}
