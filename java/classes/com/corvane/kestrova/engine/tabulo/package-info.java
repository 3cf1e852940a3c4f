/** What an engine gives to the storage library and gets from it: configurations, query conditions, listeners. */
package com.corvane.kestrova.engine.tabulo;
