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
 * <p><b>Log lines.</b> Unless the environment variable {@code BRANTLE_LOG} names a file, the library writes its log lines
 * to standard output, where they mix with the host's own: about one line or more for each file. With
 * {@code BRANTLE_LOG=FILE}, set before the virtual machine starts, they go to that file and standard output stays clean,
 * unless the file cannot be opened when the first call is made.
 *
 * <p><b>Time.</b> A call blocks until its scan has ended, which for a large repository takes as long as reading it once.
 * {@link Thread#interrupt} does not stop it, and nothing else does: use a pool of threads that may be busy for long.
 *
 * <p><b>Threads.</b> A call runs on the calling thread and starts no other. Any number of calls may run at the same time;
 * each is a request of its own. An output folder belongs to one scan at a time.
 *
 * <p><b>Output.</b> The folder must exist. Certificates are written there as PEM files, named by the lower-case hexadecimal
 * SHA-256 of issuer name and serial number with the extension {@code .cer}; only certificates of signers are written. The
 * report there is {@code info.xml}, which {@link com.kestal.tamb.brantle.report.ScanReport} reads. The result does not
 * tell whether it could be written, and the library writes nothing to standard error: delete the old report before the
 * call, and if there is none after it, none was written; the log says why. While another program has the old report open
 * on Windows, the new one may be written as {@code info-new.xml}. The report itself tells whether everything was
 * reached. Whoever can write into the folder can replace what is in it, so use one of the host's own.
 *
 * <p><b>Shares.</b> A server is connected with one user at a time in a process: {@link #CONNECT_CONFLICT} while another
 * user's scan of that server runs. A mistyped password may then show as that, too. On Linux what serves shares must lie
 * where the installation put it relative to the library; without it every connection gives {@link #CONNECT_FAILED}.
 *
 * <p>No argument may be null: a null argument gives {@link #FAILED}. A string is cut at its first zero character.
 */
public final class Brantle {
    /** The scan ended, or the path can be reached. */
    public static final int OK = 0;
    /** The walk returned an entry without a path; the scan stopped without a report. */
    public static final int EMPTY_ENTRY = 2;
    /** The repository path, or the share's server or name, does not exist, cannot be listed, or is empty text. */
    public static final int INVALID_PATH = 20001;
    /** The share refused the connection: wrong password, unknown user, access denied, or another reason. */
    public static final int CONNECT_FAILED = 20002;
    /** The server is connected for another user of this process; try again when that scan has ended. */
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
