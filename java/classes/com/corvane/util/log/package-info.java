/** The logging interfaces through which the storage library hands its notes and warnings to the engine. */
package com.corvane.util.log;
