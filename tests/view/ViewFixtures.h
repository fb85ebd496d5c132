#pragma once
// Messages the view tests render: a hostile one that tries every way out of
// the page we know of, and a friendly one with a remote image and a script.
// "@HOST@" stands for where their remote references point (a port the test
// listens on, or a dead one).
#include <string>

namespace qhviewtest {

// A 1x1 PNG, base64.
inline constexpr const char* kPixelPng =
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAIAAACQd1PeAAAADElEQVR4nGP4z8AAAAMBAQDJ/pLvAAAAAElFTkSuQmCC";

inline std::string withHost(std::string text, const std::string& host) {
    for (std::size_t at; (at = text.find("@HOST@")) != std::string::npos;) text.replace(at, 6, host);
    return text;
}

inline std::string hostileMessage(const std::string& host) {
    return withHost(std::string(R"EML(From: Mallory <mallory@example.com>
To: Ada <ada@example.com>
Subject: Hostile fixture
Date: Tue, 5 Mar 2024 10:02:03 +0000
MIME-Version: 1.0
Content-Type: multipart/related; boundary="b1"

--b1
Content-Type: text/html; charset=utf-8

<html><head>
<meta http-equiv="refresh" content="0; url=http://@HOST@/refresh">
<link rel="stylesheet" href="http://@HOST@/sheet.css">
<base href="http://@HOST@/">
<style>@import url("http://@HOST@/import.css"); @import 'http://@HOST@/import2.css';
body{background:url(http://@HOST@/bg.png)} .x{background-image:u\72l(http://@HOST@/escaped.png)}</style>
</head><body onload="document.title='PWNED'">
<p id="greeting">Body text survives</p>
<script>document.body.innerHTML='PWNED'</script>
<img src="http://@HOST@/track.png" alt="tracker">
<img src="\\@HOST@\share\unc.png">
<img src="//@HOST@/protocol-relative.png">
<img src="x" onerror="document.body.innerHTML='PWNED'">
<a href="javascript:document.body.innerHTML='PWNED'" id="js">js link</a>
<a href="vbscript:msgbox" id="vb">vb link</a>
<a href="file:///etc/passwd" id="file">file link</a>
<a href="\\@HOST@\share" id="unc">unc link</a>
<a href="https://example.com/ok" id="safe">safe link</a>
<iframe src="http://@HOST@/frame"></iframe>
<object data="http://@HOST@/object"></object>
<embed src="http://@HOST@/embed">
<video src="http://@HOST@/video.mp4" poster="http://@HOST@/poster.png"></video>
<form action="http://@HOST@/form"><input name="q" autofocus onfocus="document.body.innerHTML='PWNED'"><button>Send</button></form>
<svg><script>document.body.innerHTML='PWNED'</script></svg>
<div style="background:url('http://@HOST@/inline.png')">styled</div>
<table background="http://@HOST@/table.png"><tr><td>cell</td></tr></table>
<img src="cid:logo@fixture" id="logo">
</body></html>
--b1
Content-Type: image/png
Content-ID: <logo@fixture>
Content-Transfer-Encoding: base64

)EML") + kPixelPng + R"EML(
--b1--
)EML",
                    host);
}

// What a newsletter looks like: a tracking pixel, a script, ordinary text.
inline std::string newsletterMessage(const std::string& host) {
    return withHost(R"EML(From: News <news@example.com>
To: Ada <ada@example.com>
Subject: Weekly news
Date: Tue, 5 Mar 2024 10:02:03 +0000
MIME-Version: 1.0
Content-Type: text/html; charset=utf-8

<p>Read all about it</p><img src="http://@HOST@/pixel.gif"><script>document.write('SCRIPT RAN')</script>
)EML",
                    host);
}

}  // namespace qhviewtest
