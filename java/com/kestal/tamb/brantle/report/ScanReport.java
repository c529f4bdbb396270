package com.kestal.tamb.brantle.report;

import java.io.BufferedInputStream;
import java.io.Closeable;
import java.io.IOException;
import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.cert.CertificateException;
import java.security.cert.CertificateFactory;
import java.security.cert.X509Certificate;
import java.util.ArrayList;
import java.util.Collections;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import javax.xml.stream.Location;
import javax.xml.stream.XMLInputFactory;
import javax.xml.stream.XMLStreamConstants;
import javax.xml.stream.XMLStreamException;
import javax.xml.stream.XMLStreamReader;

/**
 * Reads a scan's report, {@code info.xml}, entry by entry; memory does not grow with the report.
 *
 * <pre>
 * try (ScanReport report = ScanReport.open(folder)) {
 *     for (ScanReport.Entry file = report.next(); file != null; file = report.next()) use(file);
 *     if (!report.isComplete()) warn(report.whatIsMissing());
 * }
 * </pre>
 *
 * <p>A document type declaration is refused, so that no entity is ever expanded and nothing outside is read. A report is
 * used by one thread at a time.
 */
public final class ScanReport implements Closeable {
    /** No text of a report is longer, in UTF-16 units: a path has at most 32,767, any other value fewer. */
    private static final int LONGEST_TEXT = 1 << 20;

    /** A scan names no more certificates of one file. */
    private static final int MOST_CERTIFICATES = 1 << 16;

    /** The report is not well-formed or not a scan's; tells where. */
    public static final class MalformedReportException extends IOException {
        private static final long serialVersionUID = 1L;
        private final int line;
        private final int column;

        MalformedReportException(String what, Location at, Throwable cause) {
            super(what + " at line " + at.getLineNumber() + ", column " + at.getColumnNumber(), cause);
            line = at.getLineNumber();
            column = at.getColumnNumber();
        }

        /** @return line of the fault, from 1 */
        public int line() {
            return line;
        }

        /** @return column of the fault, from 1 */
        public int column() {
            return column;
        }
    }

    /** What the report says of one file. Values are empty where the scan found none. */
    public static final class Entry {
        private final Path folder;
        private final Map<String, String> values = new HashMap<>();
        private final List<String> certificates = new ArrayList<>();

        Entry(Path folder) {
            this.folder = folder;
        }

        private String value(String key) {
            return values.getOrDefault(key, "");
        }

        /** @return full path of the file */
        public String name() {
            return value("Name");
        }

        /** @return SHA-1 as 40 lower-case hexadecimal digits, or empty */
        public String sha1() {
            return value("SHA1");
        }

        /** @return SHA-256 as 64 lower-case hexadecimal digits, or empty */
        public String sha256() {
            return value("SHA256");
        }

        /** @return maker's name */
        public String companyName() {
            return value("companyName");
        }

        /** @return product's name */
        public String productName() {
            return value("productName");
        }

        /** @return product's version */
        public String productVersion() {
            return value("productVersion");
        }

        /** @return whether the file installs something */
        public boolean isInstaller() {
            return value("isInstaller").equals("yes");
        }

        /** @return names of the certificate files without {@code .cer}, 64 hexadecimal digits each */
        public List<String> certificateNames() {
            return Collections.unmodifiableList(certificates);
        }

        /**
         * Reads the certificate files from the report's folder.
         *
         * @return the certificates in the report's order
         * @throws IOException when a file is missing or cannot be read
         * @throws CertificateException when a file holds no certificate that this virtual machine can read
         */
        public List<X509Certificate> certificates() throws IOException, CertificateException {
            CertificateFactory factory = CertificateFactory.getInstance("X.509");
            List<X509Certificate> read = new ArrayList<>();
            for (String name : certificates) {
                try (InputStream in = new BufferedInputStream(Files.newInputStream(folder.resolve(name + ".cer")))) {
                    read.add((X509Certificate) factory.generateCertificate(in));
                }
            }
            return read;
        }
    }

    private final Path folder;
    private final InputStream in;
    private XMLStreamReader reader;
    private String missing;
    private boolean ended;

    private ScanReport(Path folder, InputStream in) {
        this.folder = folder;
        this.in = in;
    }

    /**
     * Opens {@code info.xml} in a scan's output folder.
     *
     * @param folder the output folder
     * @return the report before its first entry
     * @throws MalformedReportException when the file does not begin as a report
     * @throws IOException when the file is missing or cannot be read
     */
    public static ScanReport open(Path folder) throws IOException {
        ScanReport report = new ScanReport(folder, new BufferedInputStream(Files.newInputStream(folder.resolve("info.xml"))));
        try {
            report.begin();
            return report;
        } catch (IOException | RuntimeException e) {
            report.close();
            throw e;
        }
    }

    private void begin() throws IOException {
        XMLInputFactory factory = XMLInputFactory.newFactory();
        factory.setProperty(XMLInputFactory.SUPPORT_DTD, false);
        factory.setProperty(XMLInputFactory.IS_SUPPORTING_EXTERNAL_ENTITIES, false);
        factory.setProperty(XMLInputFactory.IS_NAMESPACE_AWARE, false);
        try {
            reader = factory.createXMLStreamReader(in, "UTF-8");
        } catch (XMLStreamException e) {
            throw new IOException(e);
        }
        if (step() != XMLStreamConstants.START_ELEMENT || !reader.getLocalName().equals("ExecutableData")) {
            throw fault("no scan's report", null);
        }
    }

    /**
     * Reads the next entry.
     *
     * @return the entry, or null after the last one
     * @throws MalformedReportException when the report is damaged here, also when it just ends
     * @throws IOException when it cannot be read
     */
    public Entry next() throws IOException {
        if (ended) return null;
        if (step() == XMLStreamConstants.END_ELEMENT) {
            if (step() != XMLStreamConstants.END_DOCUMENT) throw fault("content behind the report", null);
            ended = true;
            return null;
        }
        expect("Executable");
        Entry entry = new Entry(folder);
        while (step() == XMLStreamConstants.START_ELEMENT) {
            String key = reader.getLocalName();
            if (key.equals("CertificatesExtracted")) {
                readCertificates(entry);
            } else if (entry.values.size() > 64 || entry.values.put(key, text()) != null) {
                throw fault("a value twice, or too many", null);
            }
        }
        return entry;
    }

    /**
     * Whether the scan reached all that it should. Known once {@link #next} has returned null.
     *
     * @return false when something was left out
     * @throws IllegalStateException while entries are left
     */
    public boolean isComplete() {
        if (!ended) throw new IllegalStateException("the report has not been read to its end");
        return missing == null;
    }

    /** @return what was left out, in the scan's words, or null when nothing was */
    public String whatIsMissing() {
        return isComplete() ? null : missing;
    }

    @Override
    public void close() throws IOException {
        in.close();
    }

    private void readCertificates(Entry entry) throws IOException {
        String count = reader.getAttributeValue(null, "count");
        while (step() == XMLStreamConstants.START_ELEMENT) {
            expect("Certificate");
            String name = reader.getAttributeValue(null, "name");
            // A name becomes part of a path.
            if (name == null || !name.matches("[0-9a-f]{64}") || entry.certificates.size() == MOST_CERTIFICATES) {
                throw fault("no certificate's name", null);
            }
            entry.certificates.add(name);
            if (step() != XMLStreamConstants.END_ELEMENT) throw fault("content of a certificate", null);
        }
        if (!String.valueOf(entry.certificates.size()).equals(count)) throw fault("another number of certificates", null);
    }

    private void expect(String element) throws IOException {
        if (reader.getEventType() != XMLStreamConstants.START_ELEMENT || !reader.getLocalName().equals(element)) {
            throw fault("no " + element, null);
        }
    }

    private String text() throws IOException {
        StringBuilder text = new StringBuilder();
        for (int event = raw(); event != XMLStreamConstants.END_ELEMENT; event = raw()) {
            if (event == XMLStreamConstants.COMMENT) continue;
            if (!reader.hasText() || text.length() > LONGEST_TEXT - reader.getTextLength()) throw fault("no value", null);
            text.append(reader.getTextCharacters(), reader.getTextStart(), reader.getTextLength());
        }
        return text.toString();
    }

    /** The next event between values; the comment that tells what is missing is kept on the way. */
    private int step() throws IOException {
        for (;;) {
            int event = raw();
            if (event == XMLStreamConstants.COMMENT) {
                String comment = reader.getText().trim();
                if (comment.startsWith("incomplete:")) missing = comment.substring("incomplete:".length()).trim();
            } else if (event != XMLStreamConstants.SPACE && !(event == XMLStreamConstants.CHARACTERS && reader.isWhiteSpace())) {
                return event;
            }
        }
    }

    private int raw() throws IOException {
        try {
            int event = reader.next();
            if (event == XMLStreamConstants.DTD || event == XMLStreamConstants.ENTITY_REFERENCE) {
                throw fault("a document type or an entity", null);
            }
            return event;
        } catch (XMLStreamException e) {
            throw fault("not well-formed", e);
        }
    }

    private MalformedReportException fault(String what, XMLStreamException cause) {
        Location at = cause != null && cause.getLocation() != null ? cause.getLocation() : reader.getLocation();
        return new MalformedReportException(what, at, cause);
    }
}
