package com.kestal.tamb.brantle.sample;

/**
 * Stands for a plug-in framework: opens a library, hands its hooks a class, closes the library.
 *
 * <p>Its own small native library must be loaded first, with {@link System#load(String)}.
 */
public final class PluginBridge {
    private PluginBridge() {}

    /** Opens the library at this path; 0 when it cannot be opened. */
    public static native long open(String path);

    /** Calls {@code Dravo_OnLoad} with the class; the hook's result. */
    public static native int onLoad(long library, Class<?> type);

    /** Calls {@code Dravo_OnUnload} with the class; the hook's result. */
    public static native int onUnload(long library, Class<?> type);

    /** Closes the library. The class must have been unloaded before. */
    public static native void close(long library);
}
