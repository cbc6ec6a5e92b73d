#pragma once

#include <string>

// Bookmarks files in the manner of several browsers. Their first line, which names the kind of file, is put
// before them by `htmlFile`.

namespace corvane {

inline std::string htmlFile(const std::string& rest) {
  return std::string("<!") + "DOC" + "TYPE NETSCAPE-Bookmark-file-1>\n" + rest;
}

inline constexpr const char* kToolbarStyle = R"html(<!-- This is an automatically generated file.
     Do Not Edit! -->
<META HTTP-EQUIV="Content-Type" CONTENT="text/html; charset=UTF-8">
<TITLE>Bookmarks</TITLE>
<H1>Bookmarks</H1>
<DL><p>
    <DT><H3 ADD_DATE="1600000000" LAST_MODIFIED="1600000001" PERSONAL_TOOLBAR_FOLDER="true">Toolbar</H3>
    <DL><p>
        <DT><H3 ADD_DATE="1600000002" LAST_MODIFIED="0">News</H3>
        <DL><p>
            <DT><A HREF="http://a.example/?x=1&copy=2" ADD_DATE="1600000003" ICON="data:image/png;base64,iVBORw0KGgo=">Café &amp; more</A>
        </DL><p>
        <DT><A HREF="http://b.example/" ADD_DATE="1600000004">Plain</A>
    </DL><p>
    <DT><A HREF="http://c.example/" ADD_DATE="1600000005">Loose</A>
</DL><p>
)html";

inline constexpr const char* kDescribedStyle =
    R"html(<META HTTP-EQUIV="Content-Type" CONTENT="text/html; charset=UTF-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'self'; script-src 'none'; img-src data: *; object-src 'none'"></meta>
<TITLE>Bookmarks</TITLE>
<H1>Bookmarks Menu</H1>

<DL><p>
    <DT><A HREF="place:sort=8" ADD_DATE="1" LAST_MODIFIED="2" LAST_CHARSET="UTF-8" TAGS="a,b">Menu</A>
    <HR>    <DT><H3 ADD_DATE="3" LAST_MODIFIED="4">Work</H3>
    <DD>What I do
all day & <i>night</i>
    <DL><p>
        <DT><H3>Inner</H3>
        <DL><p>
            <DT><A HREF="http://deep.example/" SHORTCUTURL="d" ICON_URI="http://deep.example/i.ico">Deep</A>
            <DD>See <A HREF="http://elsewhere.example/">elsewhere</A>
        </DL><p>
        <HR>
        <DT><A HREF="http://after.example/">After</A>
    </DL><p>
    <DT><H3>Empty</H3>
    <DL><p>
    </DL><p>
    <DT><A HREF="http://l.example/">Last</A>
</DL>
)html";

inline constexpr const char* kOldStyle =
    "<TITLE>Bookmarks</TITLE>\r\n<H1>Bookmarks</H1>\r\n<DL><P>\r\n<DT><H3 FOLDED "
    "ADD_DATE=\"1\">Links</H3>\r\n"
    "<DL><P>\r\n<DT><A HREF=\"http://one.example/\" ADD_DATE=\"1\" LAST_VISIT=\"2\" "
    "LAST_MODIFIED=\"3\">One\r\n"
    "<DT><A HREF=\"http://two.example/\">Two\r\n</DL><P>\r\n<DT><A "
    "HREF=\"http://three.example/\">Three\r\n</DL><P>\r\n";

inline constexpr const char* kBareStyle = R"html(<HTML>
<META HTTP-EQUIV="Content-Type" CONTENT="text/html; charset=UTF-8">
<Title>Bookmarks</Title>
<H1>Bookmarks</H1>
<DT><H3 FOLDED>Favourites</H3>
<DL><p>
<DT><A HREF="https://home.example/">Home</A>
</DL><p>
<DT><H3 FOLDED id="reading">Reading</H3>
<DL><p>
</DL><p>
<DT><A HREF="https://root.example/">Root</A>
</HTML>
)html";

}  // namespace corvane
