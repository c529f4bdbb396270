package com.kestal.tamb.brantle.manager;

/**
 * Surveys a repository of Windows software: certificates of every signature, checksums and product information of every
 * executable image and installer package.
 *
 * <p>The three methods are implemented by the native library, {@code libbrantle.so} or {@code brantle.dll}. Load it with
 * {@link System#load(String)} or {@link System#loadLibrary(String) System.loadLibrary("brantle")}; the virtual machine
 * then finds the methods by name. A plug-in framework may instead call the library's {@code Dravo_OnLoad} and
 * {@code Dravo_OnUnload} with this class to register and unregister them.
 *
 * <p>A call blocks until its scan has ended, which for a large repository takes as long as reading it once. It runs on
 * the calling thread, starts no threads, and may be made from any number of threads at the same time; each call is a
 * request of its own. Two requests at once should not share an output directory: the later report replaces the earlier.
 *
 * <p>Certificates are written into the output directory as PEM files, named by the lower-case hexadecimal SHA-256 of issuer
 * name and serial number with the extension {@code .cer}; the report there is {@code info.xml}. The output directory must
 * exist. A report that cannot be written is not told by the result.
 *
 * <p>No argument may be null: a null argument gives {@link #FAILED}. A string is cut at its first zero character.
 */
public final class Brantle {
    /** The scan ended, or the path can be reached. */
    public static final int OK = 0;
    /** The walk returned an entry without a path; the scan stopped without a report. */
    public static final int EMPTY_ENTRY = 2;
    /** The repository path, or the share's server or name, does not exist, or there is nothing in it. */
    public static final int INVALID_PATH = 20001;
    /** The share refused the connection: wrong password, unknown user, access denied, or another reason. */
    public static final int CONNECT_FAILED = 20002;
    /** The server is already connected with other credentials. */
    public static final int CONNECT_CONFLICT = 20003;
    /** The request failed inside the library, or an argument was null. */
    public static final int FAILED = -1;

    /**
     * Connects to a share, scans it and disconnects.
     *
     * @param repository share or folder of a share, {@code \\server\share[\folder]}
     * @param output existing local directory for certificates and report
     * @param domain domain of the user, may be empty
     * @param user user name
     * @param password password; the library wipes its own copy when the request ends
     * @return one of the result codes of this class
     */
    public native int getCertsAndInfoByScanningNwPath(
            String repository, String output, String domain, String user, String password);

    /**
     * Tests that a share can be connected to and its path opened. Reads no file and writes nothing.
     *
     * @param repository share or folder of a share, {@code \\server\share[\folder]}
     * @param domain domain of the user, may be empty
     * @param user user name
     * @param password password
     * @return {@link #OK} when both succeed, else another result code of this class
     */
    public native int testAccessOnNwShareWithParams(String repository, String domain, String user, String password);

    /**
     * Scans a file or a directory tree with the rights that the process has. A path that names a share is read with those
     * rights as well; no connection is made for it.
     *
     * @param repository file or directory
     * @param output existing directory for certificates and report
     * @return one of the result codes of this class
     */
    public native int getCertsAndInfoByScanningLocalPath(String repository, String output);
}
