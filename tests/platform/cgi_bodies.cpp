#include "cgi_bodies.h"

namespace {

using std::string_literals::operator""s;

const std::string kDisposition = "Content-Disposition: form-data; name=\"f\"; filename=\"x\"";
const std::string kFile = filePart("f", "x", "data");

// Returns a body of one part with these headers.
std::string headed(const std::string& headers, const std::string& data = "data") {
    return "--b\r\n" + headers + "\r\n\r\n" + data + "\r\n" + kUploadEnd;
}
std::string disposed(const std::string& disposition) {
    return headed("Content-Disposition: " + disposition);
}

// Returns a body of one file with another boundary.
std::string bounded(const std::string& boundary, const std::string& data = "data") {
    return "--" + boundary + "\r\n" + kDisposition + "\r\n\r\n" + data + "\r\n--" + boundary +
           "--\r\n";
}
std::string typed(const std::string& parameters) {
    return "multipart/form-data; " + parameters;
}

class Table {
public:
    void add(OddBody body) { m_bodies.push_back(std::move(body)); }

    // Adds a body of which only the file "x" of the field "f" is stored, containing `data`.
    void stores(const std::string& story, const std::string& bytes,
                const std::string& data = "data") {
        add({story, bytes, {{"f", "x"}}, data});
    }
    void storesAs(const std::string& type, const std::string& bytes,
                  const std::string& data = "data") {
        add({type, bytes, {{"f", "x"}}, data, type});
    }
    // Adds a body of which nothing is stored.
    void storesNothing(const std::string& story, const std::string& bytes) {
        add({story, bytes, {}});
    }
    void storesNothingAs(const std::string& type, const std::string& bytes) {
        add({type, bytes, {}, kNoFile, type});
    }
    // Adds a body that results in one text field and nothing else.
    void finds(const std::string& name, const std::string& bytes) {
        add({"a field " + name, bytes, {{name, "data"}}});
    }

    std::vector<OddBody> take() { return std::move(m_bodies); }

private:
    std::vector<OddBody> m_bodies;
};

// RFC 2046, section 5.1.1: the delimiter is a line of its own, and what follows the closing one
// does not count.
void addClosingBoundaries(Table& table) {
    table.stores("nothing behind it", kFile + "--b--");
    table.stores("twice", kFile + kUploadEnd + kUploadEnd);
    table.stores("twice on one line", kFile + "--b----b--\r\n");
    table.stores("a third dash", kFile + "--b---");
    table.stores("zero bytes behind it", kFile + "--b--\0\0\0"s);
    table.stores("blanks behind it", kFile + "--b-- \t \r\n");
    table.stores("a line feed alone behind it", kFile + "--b--\n");
    table.stores("a field behind it", kFile + kUploadEnd + textPart("a", "1") + kUploadEnd);
    table.stores("a file behind it", kFile + kUploadEnd + filePart("f", "y", "more") + kUploadEnd);
    table.stores("half a part behind it", kFile + kUploadEnd + "--b\r\nContent-Disp");

    table.storesNothing("missing", kFile);
    table.storesNothing("missing, another part instead", kFile + "--b\r\n");
    table.storesNothing("one dash, and the end", kFile + "--b-");
    table.storesNothing("one dash, and a line end", kFile + "--b-\r\n");
    table.storesNothing("a blank between its dashes", kFile + "--b- -\r\n");
    table.storesNothing("a zero byte between its dashes", kFile + "--b-\0-\r\n"s);
    table.storesNothing("one dash in front", kFile + "-b--\r\n");
    table.storesNothing("three dashes in front", kFile + "---b--\r\n");
    table.storesNothing("a blank in front", kFile + " --b--\r\n");
    table.storesNothing("in capitals", kFile + "--B--\r\n");
    table.storesNothing("of another body", kFile + "--c--\r\n");
    table.storesNothing("of another body, longer", kFile + "--bb--\r\n");
    for (const char* end : {"", "\n", "\r", "\n\r", "\r\r"})
        table.storesNothing("no line end in front",
                            "--b\r\n" + kDisposition + "\r\n\r\ndata" + end + "--b--\r\n");
    table.storesNothing("among the headers", "--b\r\n" + kDisposition + "\r\n--b--\r\n\r\n");
    table.storesNothing("before all parts", kUploadEnd + kFile + kUploadEnd);
    table.storesNothing("alone", kUploadEnd);
    table.storesNothing("alone behind an empty line", "\r\n" + kUploadEnd);
}

// Lengths around those of the stream's blocks, and one byte more or less.
void addBoundaryLengths(Table& table) {
    for (int length : {1, 2, 69, 70, 71, 72, 4090, 4091, 4092, 4095, 4096, 4097, 8192}) {
        const std::string boundary = repeated("b", length);
        const std::string data = "\r\n--" + boundary.substr(1) + "\r\n--";
        table.storesAs(typed("boundary=" + boundary), bounded(boundary, data), data);
        table.storesAs(typed("boundary=\"" + boundary + "\""), bounded(boundary, data), data);
    }
    table.storesNothingAs(typed("boundary="), bounded(""));
    table.storesNothingAs(typed("boundary=\"\""), bounded(""));
}

void addBoundaryTexts(Table& table) {
    const struct {
        const char* parameters;
        const char* boundary;
    } good[] = {
        {"boundary=\"'()+_,-./:=?\"", "'()+_,-./:=?"},
        {"boundary=\"a b\"", "a b"},
        {"boundary=\"b \"", "b "},
        {"boundary=\"b;c\"", "b;c"},
        {"boundary=-", "-"},
        {"boundary=--", "--"},
        {"boundary=----FormBoundary7MA4YWxkTrZu0gW", "----FormBoundary7MA4YWxkTrZu0gW"},
        {"boundary=\xc3\xa4", "\xc3\xa4"},
        {"boundary=%62", "%62"},
        {"boundary=b,c", "b,c"},
        {"boundary=b=c", "b=c"},
        {"boundary='b'", "'b'"},
        {"boundary=\"a\\\"b\"", "a\"b"},
        {"boundary=\"a\\\\b\"", "a\\b"},
        {"boundary=\"a\\b\"", "a\\b"},
        {"boundary=b \t", "b"},
        {"boundary = b", "b"},
        {"BOUNDARY=b", "b"},
        {"boundary=b; charset=utf-8", "b"},
        {"charset=\"; boundary=c\"; boundary=b", "b"},
        {"; ;boundary=b;", "b"},
    };
    for (const auto& row : good)
        table.storesAs(typed(row.parameters), bounded(row.boundary));

    for (const char* parameters :
         {"boundary", "boundary=b; boundary=b", "boundary=b; Boundary=c", "boundary=\"b",
          "boundary=\"b\"c", "boundary=\"b\\\"", "boundary=b\x01", "boundary=b\x7f",
          "boundary*=utf-8''b", "boundary*0=b", "xboundary=b", "=b"})
        table.storesNothingAs(typed(parameters), bounded("b"));
    for (const char* type : {"multipart/mixed; boundary=b", "multipart/form-data, boundary=b",
                             "multipart/form-data boundary=b", "form-data; boundary=b",
                             "multipart/form-dat; boundary=b", "; boundary=b", ""})
        table.storesNothingAs(type, bounded("b"));
    table.storesNothingAs(typed("boundary=\"b\""), bounded("\"b\""));
    table.storesNothingAs(typed("boundary=%62"), bounded("b"));
    table.storesNothingAs(typed("boundary=B"), bounded("b"));
}

// Text that begins like the delimiter and continues differently is data, or preamble.
void addFalseStarts(Table& table) {
    const std::string type = typed("boundary=false");
    const std::string delimiter = "\r\n--false";
    for (std::size_t length = 1; length < delimiter.size(); ++length) {
        const std::string start = delimiter.substr(0, length);
        for (const std::string& data : {start + "x", "x" + start, "x" + start + start + "x"})
            table.storesAs(type, bounded("false", data), data);
        table.storesAs(type, start + "x\r\n" + bounded("false"));
    }
    // The line end before the data may also begin the delimiter.
    for (std::size_t length = 1; length < delimiter.size() - 2; ++length) {
        const std::string data = delimiter.substr(2, length) + "x";
        table.storesAs(type, bounded("false", data), data);
    }
    // A whole delimiter ends the data, whatever follows it on its line.
    table.storesNothingAs(type, bounded("false", "x\r\n--falsehood"));
    table.storesNothingAs(type, bounded("false", "--false positive"));
}

void addDelimiterLines(Table& table) {
    const std::string rest = kDisposition + "\r\n\r\ndata\r\n" + kUploadEnd;
    for (const std::string& end : {" \r\n"s, "\t \t\r\n"s, std::string(5000, ' ') + "\r\n"})
        table.stores("blanks behind a boundary", "--b" + end + rest);
    const std::string wrong[] = {
        "",
        "\n",
        "\r",
        " \n",
        "\r\r\n",
        "\0\r\n"s,
        "x\r\n",
        "-\r\n",
        "--\r\n",
        " x\r\n",
        "\v\r\n",
        ".\r\n",
        "; charset=utf-8\r\n",
        "\r\n\r\n",
        "\r\n--b\r\n",
        "\r\n\n",
    };
    for (const std::string& end : wrong)
        table.storesNothing("a boundary followed by \"" + end + "\"", "--b" + end + rest);
}

void addPreambles(Table& table) {
    const std::string preambles[] = {
        "\r\n",
        "\r\n\r\n",
        "preamble\r\n",
        "preamble --b\r\n",
        "--a\r\n",
        "\n\r\n",
        "-\r\n",
        "--\r\n",
        "\0\r\n"s,
        "\xEF\xBB\xBF\r\n",
        "--B\r\n",
        std::string(5000, 'p') + "\r\n",
        "Content-Type: multipart/form-data; boundary=b\r\n\r\n",
    };
    for (const std::string& preamble : preambles)
        table.stores("the preamble " + preamble, preamble + kFile + kUploadEnd);
    // Not on a line of its own, the first boundary is part of the preamble.
    for (const std::string& preamble : {"preamble"s, "\xEF\xBB\xBF"s, " "s, "\t"s, "\n"s, "\r"s,
                                        "preamble\n"s, "\r\n "s, "\0"s, "-"s})
        table.storesNothing("the preamble " + preamble, preamble + kFile + kUploadEnd);
    for (const std::string& preamble : {"--bx\r\n"s, "--b\r\n"s, "--b-\r\n"s, "\r\n--bb\r\n"s})
        table.storesNothing("the preamble " + preamble, preamble + kFile + kUploadEnd);

    for (const std::string& epilogue :
         {"epilogue"s, std::string(10000, '\xff'), "\r\n--b\r\n\r\n\r\n--b--\r\n"s, "\0"s})
        table.stores("an epilogue", kFile + kUploadEnd + epilogue);
}

void addLineEnds(Table& table) {
    const std::string body = kFile + kUploadEnd;
    for (const char* end : {"\n", "\r", "\n\r", "\r\r\n", "\r\n\r\n", " \n"}) {
        std::string changed;
        for (const char byte : body)
            changed += byte == '\n' ? end : byte == '\r' ? "" : std::string(1, byte);
        table.storesNothing("another line end throughout", changed);
    }
}

void addHeaders(Table& table) {
    table.stores("the disposition alone", headed(kDisposition));
    table.stores("no blank behind the colon",
                 headed("content-disposition:form-data;name=f;filename=x"));
    table.stores("tabs for blanks",
                 headed("CONTENT-DISPOSITION:\tform-data;\tname=f\t;\tfilename=x\t"));
    table.stores("a type", headed(kDisposition + "\r\nContent-Type: text/html; charset=\"x"));
    table.stores("a type without a value", headed(kDisposition + "\r\nContent-Type:"));
    table.stores("two types",
                 headed("Content-Type: a/b\r\n" + kDisposition + "\r\nContent-Type: c/d"));
    table.stores("a transfer encoding, which is ignored (RFC 7578, section 4.7)",
                 headed(kDisposition + "\r\nContent-Transfer-Encoding: base64", "ZGF0YQ=="),
                 "ZGF0YQ==");
    table.stores("a wrong length", headed(kDisposition + "\r\nContent-Length: 1"));
    table.stores("bytes that are not UTF-8", headed("X: \xff\xfe\x01\r\n" + kDisposition));
    table.stores("a hundred of them", headed(repeated("X: y\r\n", 100) + kDisposition));
    table.stores("fifteen thousand bytes",
                 headed("X: " + std::string(15000, 'x') + "\r\n" + kDisposition));
    table.stores("folded lines (RFC 5322, section 2.2.3)",
                 headed("Content-Disposition:\r\n form-data;\r\n\tname=f;\r\n \t filename=x"));
    table.stores("a folded line of blanks", headed(kDisposition + ";\r\n \t \r\nX: y"));
    table.add({"a fold inside a name",
               headed("Content-Disposition: form-data; name=\"a\r\n b\r\n\tc\""),
               {{"a b\tc", "data"}}});

    table.storesNothing("none", "--b\r\n\r\ndata\r\n" + kUploadEnd);
    table.storesNothing("a type alone", headed("Content-Type: text/plain"));
    table.storesNothing("no colon", headed(kDisposition + "\r\nnonsense"));
    table.storesNothing("no name", headed(": y\r\n" + kDisposition));
    table.storesNothing("a blank before all", headed(" " + kDisposition));
    table.storesNothing("a blank before the colon", headed("X : y\r\n" + kDisposition));
    table.storesNothing("a blank in a name", headed("X Y: z\r\n" + kDisposition));
    table.storesNothing("a tab in a name", headed("X\tY: z\r\n" + kDisposition));
    table.storesNothing("a fold into a malformed parameter", headed(kDisposition + "\r\n x"));
    table.storesNothing("two dispositions", headed(kDisposition + "\r\n" + kDisposition));
    table.storesNothing("two dispositions, one in capitals",
                        headed(kDisposition + "\r\nCONTENT-DISPOSITION: form-data; name=g"));
    table.storesNothing("a zero byte in a name", headed("X\0: y\r\n"s + kDisposition));
    table.storesNothing("a zero byte in a value", headed("X: \0\r\n"s + kDisposition));
    table.storesNothing("a carriage return", headed("X: y\rz\r\n" + kDisposition));
    table.storesNothing("a line feed", headed("X: y\nX: z\r\n" + kDisposition));
    table.storesNothing("line feeds at their end",
                        "--b\r\n" + kDisposition + "\n\ndata\r\n" + kUploadEnd);
    table.storesNothing("no empty line at their end",
                        "--b\r\n" + kDisposition + "\r\ndata\r\n" + kUploadEnd);
    table.storesNothing("no empty line, and data like a header",
                        "--b\r\n" + kDisposition + "\r\nX: y\r\n--b--\r\n\r\n");
    table.storesNothing("no end", "--b\r\n" + kDisposition);
    table.storesNothing("no end, and one without", "--b\r\nX: " + std::string(20000, 'x'));
    table.storesNothing("no end of many", "--b\r\n" + repeated("X: y\r\n", 3000));
    table.storesNothing("more than 16 KiB",
                        headed("X: " + std::string(16384, 'x') + "\r\n" + kDisposition));
}

// RFC 7578, section 4.2.
void addDispositions(Table& table) {
    const struct {
        const char* name;
        const char* found;
    } names[] = {
        {"name=a", "a"},
        {"NAME=a", "a"},
        {"name = a", "a"},
        {"name=a b", "a b"},
        {"name='a'", "'a'"},
        {"name=a=b", "a=b"},
        {"name=a\"b", "a\"b"},
        {"name=\" \"", " "},
        {"name=\"a;b\"", "a;b"},
        {"name=\"a=b\"", "a=b"},
        {"name=\"a\\b\"", "a\\b"},
        {"name=\"a\\\\b\"", "a\\b"},
        {"name=\"a\\\\\"", "a\\"},
        {"name=\"a\\\"b\"", "a\"b"},
        {"name=\"%61%62\"", "ab"},
        {"name=\"a+b\"", "a+b"},
        {"name=\"%\"", "%"},
        {"name=\"%4\"", "%4"},
        {"name=\"%4g\"", "%4g"},
        {"name=\"%%61\"", "%a"},
        {"name=\"%2561\"", "%61"},
        {"name=\"%0D%0A%22\"", "\r\n\""},
        {"name=\"\xff\"", "\xff"},
        {"name=a; name*=utf-8''c", "a"},
        {"x=y; name=a", "a"},
        {"x=y; x=z; name=a", "a"},
        {"x=\"; name=c\"; name=a", "a"},
        {"; ; name=a; ;", "a"},
    };
    for (const auto& row : names)
        table.finds(row.found, disposed("form-data; "s + row.name));
    table.finds("a", disposed("FORM-DATA;name=a"));
    table.finds("a", disposed("form-data ; name=a"));
    table.finds(std::string(15000, 'n'), disposed("form-data; name=" + std::string(15000, 'n')));
    for (const char* name : {"name=", "name=\"\"", "name=\"%00\"", "name=\"a%00b\""})
        table.storesNothing("a field whose name no list can hold", disposed("form-data; "s + name));

    for (const char* wrong :
         {"",
          ";",
          "form-data",
          "form-data;",
          "name=f; filename=x",
          "form-data name=f; filename=x",
          "form-data, name=f; filename=x",
          "attachment; name=f; filename=x",
          "file; name=f; filename=x",
          "form-data; filename=x",
          "form-data; name; filename=x",
          "form-data; =f; filename=x",
          "form-data; x; name=f; filename=x",
          "form-data; name=\"f; filename=x",
          "form-data; name=\"f\\\"; filename=x",
          "form-data; name=\"f\"g; filename=x",
          "form-data; name=\"f\" \"g\"; filename=x",
          "form-data; name=f; name=f; filename=x",
          "form-data; name=f; NAME=g; filename=x",
          "form-data; name=f; filename=x; filename=x",
          "form-data; name=f; filename",
          "form-data; name=f; filename=x;y",
          "form-data; name=f; filename=\"x",
          "form-data; name=f; filename=\"\\\"",
          "form-data; name=f; filename=\"..\\\"",
          "form-data; name=f; filename*=UTF-8''x",
          "form-data; name=f; filename=x; filename*=UTF-8''x; filename*=UTF-8''x",
          "form-data; name*=UTF-8''f; filename=x",
          "form-data; name=; filename=x",
          "form-data; name=\"%00\"; filename=x",
          "form-data; name=f; filename=\"x%00.txt\""})
        table.storesNothing("the disposition "s + wrong, disposed(wrong));
    table.stores("an extended file name beside the plain one",
                 disposed("form-data; name=f; filename*=UTF-8''y; filename=x"));
}

// The name of a file is reported, but never used as a path.
void addFileNames(Table& table) {
    const std::pair<std::string, std::string> names[] = {
        {"", ""},
        {" ", " "},
        {"/", ""},
        {"//", ""},
        {"a/", ""},
        {"a/.", ""},
        {"a/..", ""},
        {"/..", ""},
        {"a\\..", ""},
        {"../x", "x"},
        {"..\\x", "x"},
        {"....//x", "x"},
        {".../x", "x"},
        {"..;/x", "x"},
        {"../../../../../../etc/passwd", "passwd"},
        {"/dev/null", "null"},
        {"/proc/self/mem", "mem"},
        {"%2e%2e%2fx", "x"},
        {"%2E%2E", ""},
        {"%5c%2e%2e", ""},
        {"..%255cx", "..%5cx"},
        {"x%2F", ""},
        {"C:x", "C:x"},
        {"C:\\x", "x"},
        {"C:\\a/b\\x", "x"},
        {"\\\\host\\c$\\x", "x"},
        {"~", "~"},
        {"-rf", "-rf"},
        {"NUL", "NUL"},
        {"x\ty", "x\ty"},
        {" x ", " x "},
        {". .", ". ."},
        {"x.", "x."},
        {"%0d%0aSet-Cookie: a=b", "\r\nSet-Cookie: a=b"},
        {"<script>", "<script>"},
        {"x;rm -rf *", "x;rm -rf *"},
        {"\xff\xfe", "\xff\xfe"},
        {std::string(255, 'n'), std::string(255, 'n')},
        {std::string(4000, 'n'), std::string(4000, 'n')},
        {repeated("../", 1000) + "x", "x"},
    };
    for (const auto& [sent, kept] : names)
        table.add(
            {"the file " + sent, filePart("f", sent, "data") + kUploadEnd, {{"f", kept}}, "data"});
}

void addData(Table& table) {
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte)
        allBytes += static_cast<char>(byte);
    for (const std::string& data :
         {""s, "\0"s, "\r"s, "\n"s, "\r\n"s, "\r\n\r\n"s, "\r\r\n"s, "\n\r"s, "-"s, "--"s, "b"s,
          "x--b"s, "x--b--"s, "\n--b--\n"s, "\r--b--\r"s, "\r\n-b--\r\n"s, "\r\n --b--"s, allBytes})
        table.stores("the data " + data, filePart("f", "x", data) + kUploadEnd, data);
    for (int size : {4095, 4096, 4097, 16383, 16384, 16385, 40000}) {
        const std::string data = repeated("\r", size);
        table.stores(std::to_string(size) + " bytes", filePart("f", "x", data) + kUploadEnd, data);
    }
    table.stores("no data, and no line end for them",
                 "--b\r\n" + kDisposition + "\r\n\r\n" + kUploadEnd, "");

    for (const std::string& text : {""s, "%41+&="s, "\r\n"s, "x--b--"s, "\n--b--\n"s, "\xff"s})
        table.add({"the text " + text, textPart("a", text) + kUploadEnd, {{"a", text}}});
    const std::string nested = "--c\r\nContent-Disposition: file; filename=\"y\"\r\n\r\nz\r\n--c--";
    table.add({"a body in a body",
               headed("Content-Disposition: form-data; name=a\r\n"
                      "Content-Type: multipart/mixed; boundary=c",
                      nested),
               {{"a", nested}}});
}

void addParts(Table& table) {
    const std::string field = textPart("a", "1");
    const auto fields = [](int count) {
        return Pairs(static_cast<std::size_t>(count), {"a", "1"});
    };
    const auto fieldsAndFile = [&fields](int count) {
        Pairs all = fields(count);
        all.emplace_back("f", "x");
        return all;
    };

    table.add({"a name twice",
               textPart("a", "1") + textPart("a", "2") + kUploadEnd,
               {{"a", "1"}, {"a", "2"}}});
    table.add({"two names that differ in case",
               textPart("a", "1") + textPart("A", "2") + kUploadEnd,
               {{"a", "1"}, {"A", "2"}}});
    // The file's field is added last, wherever its part is.
    table.add({"a field of the file's name before it",
               textPart("f", "1") + kFile + kUploadEnd,
               {{"f", "1"}, {"f", "x"}},
               "data"});
    table.add({"a field of the file's name behind it",
               kFile + textPart("f", "1") + kUploadEnd,
               {{"f", "1"}, {"f", "x"}},
               "data"});
    table.stores("a second file of the same name", kFile + filePart("f", "y", "more") + kUploadEnd);
    table.stores("a second file without a name", kFile + filePart("", "y", "more") + kUploadEnd);
    table.stores("a file not chosen before it", filePart("f", "", "") + kFile + kUploadEnd);
    table.stores("a file not chosen behind it", kFile + filePart("f", "", "") + kUploadEnd);
    table.stores("a field without a name", textPart("", "1") + kFile + kUploadEnd);
    table.stores("a field with a zero byte", textPart("a", "1\0"s) + kFile + kUploadEnd);
    table.add({"a wrong part behind good ones",
               field + kFile + field + "--b\r\nnonsense\r\n\r\n" + kUploadEnd, fields(2)});
    table.add({"a wrong part before good ones",
               field + "--b\r\nnonsense\r\n\r\n\r\n" + field + kFile + kUploadEnd, fields(1)});

    table.add({"ten thousand fields", repeated(field, 10000) + kUploadEnd, fields(1000)});
    table.add({"a file as the thousandth", repeated(field, 999) + kFile + kUploadEnd,
               fieldsAndFile(999), "data"});
    table.add({"a file behind a thousand fields", repeated(field, 1000) + kFile + kUploadEnd,
               fields(1000)});
    table.add({"a file before a thousand fields", kFile + repeated(field, 1000) + kUploadEnd,
               fields(1000)});
    table.stores("ten thousand files",
                 kFile + repeated(filePart("g", "y", "more"), 10000) + kUploadEnd);
    table.stores("ten thousand files not chosen",
                 repeated(filePart("f", "", ""), 10000) + kFile + kUploadEnd);
    table.stores("ten thousand fields without a name",
                 repeated(textPart("", "1"), 10000) + kFile + kUploadEnd);
}

// One body that ends too early, at different places. The field before the file is kept once it has
// arrived.
void addEndings(Table& table) {
    const std::string field = textPart("a", "1");
    const std::string body = field + kFile;
    const auto upTo = [&body](const std::string& text, std::size_t more = 0) {
        return body.substr(0, body.rfind(text) + more);
    };
    table.storesNothing("nothing at all", "");
    table.storesNothing("a dash", "-");
    table.storesNothing("the first boundary", "--b");
    table.storesNothing("the first line", "--b\r\n");
    table.storesNothing("the field, but not its end", field);
    table.storesNothing("the field and half a boundary", field + "--");
    const Pairs arrived = {{"a", "1"}};
    table.add({"the boundary behind the field", field + "--b", arrived});
    table.add({"half a disposition", upTo("filename", 4), arrived});
    table.add({"an open quote", upTo("x\"\r\n", 1), arrived});
    table.add({"half a line end", upTo("\r\nContent-Type", 1), arrived});
    table.add({"one header", upTo("\r\nContent-Type", 2), arrived});
    table.add({"all headers, but not their end", upTo("\r\ndata"), arrived});
    table.add({"all headers", upTo("data"), arrived});
    table.add({"half of the data", upTo("data", 2), arrived});
    table.add({"all data", upTo("data", 4), arrived});
    table.add({"all data and a carriage return", body.substr(0, body.size() - 1), arrived});
    table.add({"all data and a line end", body, arrived});
    table.add({"all data and half a boundary", body + "--", arrived});
    table.add({"all data and a boundary", body + "--b", arrived});
    table.add({"all data and all but a dash", body + "--b-", arrived});
}

} // namespace

std::vector<OddBody> oddBodies() {
    Table table;
    addClosingBoundaries(table);
    addBoundaryLengths(table);
    addBoundaryTexts(table);
    addFalseStarts(table);
    addDelimiterLines(table);
    addPreambles(table);
    addLineEnds(table);
    addHeaders(table);
    addDispositions(table);
    addFileNames(table);
    addData(table);
    addParts(table);
    addEndings(table);
    return table.take();
}
