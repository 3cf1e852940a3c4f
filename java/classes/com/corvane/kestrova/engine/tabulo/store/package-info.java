/**
 * Storing and reading the messages of a FIX engine: one call to store a message, streams to read them.
 *
 * <p>{@link com.corvane.kestrova.engine.tabulo.store.Tabulo#load()} comes first, once in a process. A
 * {@link com.corvane.kestrova.engine.tabulo.store.MessageStore} is one message table, a
 * {@link com.corvane.kestrova.engine.tabulo.store.SessionNumbers} the sequence numbers beside it, and a
 * {@link com.corvane.kestrova.engine.tabulo.store.Watch} follows several tables while engines write them. Failures are
 * {@link com.corvane.kestrova.engine.tabulo.store.TabuloException}s. Nothing here takes or gives null unless it says
 * so; null where none is allowed is a {@link NullPointerException}.
 *
 * <p>Everything here is made of the classes of {@link com.corvane.kestrova.engine.tabulo.jni}, which are there for what
 * this package does not offer; both may be used on one table, in one process or in several, as long as one of them
 * writes.
 */
package com.corvane.kestrova.engine.tabulo.store;
