package com.kestal.tamb.brantle.sample;

import com.kestal.tamb.brantle.manager.Brantle;
import java.nio.file.Files;
import java.nio.file.Path;
import javax.xml.parsers.DocumentBuilderFactory;
import org.w3c.dom.Document;
import org.w3c.dom.Element;
import org.w3c.dom.NodeList;

/**
 * A host as small as can be: registers the natives through the plug-in hooks, scans a folder, prints what the report says.
 *
 * <pre>java -cp brantle.jar:brantle-sample.jar com.kestal.tamb.brantle.sample.SampleHost BRIDGE LIBRARY REPOSITORY OUTPUT</pre>
 */
public final class SampleHost {
    private SampleHost() {}

    public static void main(String[] args) throws Exception {
        if (args.length != 4) {
            System.err.println("usage: SampleHost BRIDGE LIBRARY REPOSITORY OUTPUT");
            System.exit(22);
        }
        System.load(Path.of(args[0]).toAbsolutePath().toString());
        long library = PluginBridge.open(Path.of(args[1]).toAbsolutePath().toString());
        if (library == 0) throw new IllegalStateException("cannot open " + args[1]);
        int result;
        try {
            if (PluginBridge.onLoad(library, Brantle.class) != 0) throw new IllegalStateException("Dravo_OnLoad failed");
            try {
                result = new Brantle().getCertsAndInfoByScanningLocalPath(args[2], args[3]);
            } finally {
                PluginBridge.onUnload(library, Brantle.class);
            }
        } finally {
            PluginBridge.close(library);
        }
        System.out.println("result " + result);
        if (result == Brantle.OK) print(Path.of(args[3], "info.xml"));
        System.exit(result == Brantle.OK ? 0 : 1);
    }

    private static void print(Path report) throws Exception {
        DocumentBuilderFactory factory = DocumentBuilderFactory.newInstance();
        factory.setFeature("http://apache.org/xml/features/disallow-doctype-decl", true);
        Document document;
        try (var in = Files.newInputStream(report)) {
            document = factory.newDocumentBuilder().parse(in);
        }
        NodeList files = document.getElementsByTagName("Executable");
        for (int i = 0; i < files.getLength(); i++) {
            Element file = (Element) files.item(i);
            System.out.println(text(file, "Name"));
            System.out.println("  " + text(file, "productName") + " " + text(file, "productVersion")
                    + " by " + text(file, "companyName") + ", installer: " + text(file, "isInstaller"));
            NodeList certificates = file.getElementsByTagName("Certificate");
            for (int k = 0; k < certificates.getLength(); k++) {
                System.out.println("  certificate " + ((Element) certificates.item(k)).getAttribute("name") + ".cer");
            }
        }
        System.out.println(files.getLength() + " files");
    }

    private static String text(Element file, String name) {
        NodeList found = file.getElementsByTagName(name);
        return found.getLength() == 0 ? "" : found.item(0).getTextContent();
    }
}
