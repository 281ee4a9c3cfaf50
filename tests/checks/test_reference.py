#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that the documentation's scripts read what is there, and that its checks find what they look for."""
import pathlib
import shutil
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "scripts" / "reference"))
import docstring  # noqa: E402
import doxygen_filter  # noqa: E402
import header  # noqa: E402
import links  # noqa: E402
import man  # noqa: E402
import man_pages  # noqa: E402
import markdown  # noqa: E402
import pages  # noqa: E402
import site_words  # noqa: E402

HEADER = """\
/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Shelves: what is on them. One shelf is used by one thread
 * at a time.
 */
#ifndef SIDEBAND_SHELF_H
#define SIDEBAND_SHELF_H

#include <stdint.h>

SIDEBAND_BEGIN_DECLS

/** Books of a shelf. */
#define SHELF_SMALL 10
#define SHELF_LARGE 20 /**< with a ladder */

typedef struct shelf_ctx shelf_ctx;

/** A shelf. */
struct shelf_ctx {
    uint8_t books; /**< how many, 0 to
                        SHELF_LARGE */
    union {
        uint8_t* first; /**< the one on the left */
        uint64_t first_pad;
    };
    uint8_t reserved_3[2];
};

/* ---- Counting -------------------------------------------------------------------------------- */
/*
 * All return the number of books, or -1. row is a row, from 0:
 *  - the lowest is 0
 *  0    the lowest, where children
 *       reach
 *  1    the next
 */

/**
 * Counts. See `shelf_ctx`; 100 % of *row, @ shelf.
 * @param colour  which ones:
 *                any if 0
 * @return the books
 *         in it
 */
SIDEBAND_EXPORT int32_t shelf_count(shelf_ctx* ctx, uint8_t row, uint8_t colour);

/** Both empty a shelf. @return 0 */
SIDEBAND_EXPORT int32_t shelf_clear(shelf_ctx* ctx);
SIDEBAND_EXPORT int32_t shelf_burn(shelf_ctx* ctx);

SIDEBAND_END_DECLS

#endif
"""


class Scratch(unittest.TestCase):
    """A scratch tree."""

    def setUp(self):
        self.scratch = tempfile.TemporaryDirectory()
        self.addCleanup(self.scratch.cleanup)
        self.root = pathlib.Path(self.scratch.name).resolve()

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        return path


class ReadsHeaders(Scratch):
    def setUp(self):
        super().setUp()
        self.read = header.Header("shelf.h", HEADER)

    def test_what_is_declared_and_how(self):
        self.assertEqual([(each.kind, each.name) for each in self.read.declarations()],
                         [("macro", "SHELF_SMALL"), ("macro", "SHELF_LARGE"), ("forward", "shelf_ctx"),
                          ("record", "shelf_ctx"), ("function", "shelf_count"), ("function", "shelf_clear"),
                          ("function", "shelf_burn")])

    def test_one_comment_for_several(self):
        entries = self.read.sections[1].entries
        self.assertEqual([len(each.declarations) for each in entries], [1, 2])

    def test_members(self):
        record = self.read.sections[0].entries[-1].declarations[0]
        self.assertEqual([(each.name, each.doc and each.doc.text(), each.is_reserved) for each in record.members()],
                         [("books", "how many, 0 to SHELF_LARGE", False), ("first", "the one on the left", False),
                          ("first_pad", None, True), ("reserved_3", None, True)])

    def test_paragraphs_lists_parameters_result(self):
        self.assertEqual(self.read.about.first_sentence(), "Shelves: what is on them")
        remark = self.read.sections[1].remark
        self.assertEqual([tuple(block) for block in remark.blocks],
                         [("paragraph", ["All return the number of books, or -1. row is a row, from 0:"]),
                          ("items", ["the lowest is 0"]),
                          ("terms", [("0", "the lowest, where children reach"), ("1", "the next")])])
        doc = self.read.sections[1].entries[0].doc
        self.assertEqual(doc.params, [("colour", [docstring.Block("paragraph", ["which ones: any if 0"])])])
        self.assertEqual(doc.returns, [docstring.Block("paragraph", ["the books in it"])])

    def test_where_a_parameter_is_told(self):
        section = self.read.sections[1]
        entry = section.entries[0]
        told = [section.where_told(entry, entry.declarations[0], name) for name in ("ctx", "row")]
        self.assertEqual(told, ["see shelf_ctx", "as said above"])
        self.assertTrue(section.tells_result())
        entry = section.entries[1]._replace(declarations=entry.declarations)
        self.assertIsNone(section.where_told(entry, entry.declarations[0], "colour"))

    def test_refuses_a_comment_that_belongs_to_nothing(self):
        with self.assertRaises(docstring.Malformed):
            header.Header("shelf.h", HEADER.replace("/** Both", "/* All of them. */\n\n/** Both"))

    def test_refuses_a_parameter_that_goes_on_without_indentation(self):
        with self.assertRaises(docstring.Malformed):
            header.Header("shelf.h", HEADER.replace(" *                any", " * any"))


class WritesManualPages(Scratch):
    def page(self, text=HEADER):
        path = self.write("shelf.h", text)
        return man.render(path, [path], "1.2", "2024-01-02")

    def test_has_every_name_parameter_and_result(self):
        page = self.page()
        self.assertEqual(man_pages.left_out(HEADER, page), [])
        self.assertIn(".TH SIDEBAND_SHELF 3 2024-01-02 \"sideband 1.2\"", page)
        self.assertIn(r"sideband_shelf \- Shelves: what is on them" "\n", page)
        self.assertIn("\n\\fIcolour\\fP\nwhich ones: any if 0\n", page)
        self.assertIn("\nResult: the books in it\n", page)

    def test_finds_a_name_that_is_left_out(self):
        page = self.page()
        self.assertEqual(man_pages.left_out(HEADER.replace("shelf_burn", "shelf_sell"), page), ["shelf_sell"])
        self.assertEqual(man_pages.left_out(HEADER.replace("SHELF_SMALL", "SHELF_TINY"), page), ["SHELF_TINY"])

    def test_text_is_no_request(self):
        page = self.page(HEADER.replace("Counts. See", ".so /etc/passwd is not read. See"))
        self.assertIn("\n\\&.so /etc/passwd", page)

    @unittest.skipUnless(all(map(shutil.which, ("man", "groff"))), "neither man nor groff")
    def test_the_formatters_find_what_is_wrong(self):
        good = self.write("good.3", self.page())
        self.assertEqual(man_pages.warnings(good), [])
        bad = self.write("bad.3", self.page().replace(".SH DESCRIPTION", ".SX DESCRIPTION"))
        self.assertEqual(len(man_pages.warnings(bad)), sum(shutil.which(name) is not None for name in man_pages.FORMATTERS))


class ShowsDoxygen(Scratch):
    def view(self):
        return doxygen_filter.HeaderView(self.write("shelf.h", HEADER)).convert()

    def test_keeps_the_lines(self):
        view = self.view().split("\n")
        for number, line in enumerate(HEADER.split("\n")):
            if line.startswith(("#", "SIDEBAND_EXPORT")):
                self.assertIn(line.split("/*")[0].rstrip(), view[number])

    def test_says_at_each_what_is_said_of_several(self):
        view = self.view()
        for name in ("shelf_clear", "shelf_burn"):
            self.assertRegex(view, rf"/\*\* @brief Both empty a shelf\. .*@return <p>0</p> \*/ SIDEBAND_EXPORT int32_t {name}")
        self.assertRegex(view, r"SHELF_SMALL 10 /\*\*< @brief Books of a shelf\. +\*/")
        self.assertIn("@param ctx see shelf_ctx", view)

    def test_invents_no_words_for_what_is_not_said(self):
        view = doxygen_filter.HeaderView(self.write("shelf.h", HEADER.replace("@param colour", "@param color"))).convert()
        self.assertNotIn("@param colour", view)

    def test_text_is_no_command(self):
        self.assertIn(r"See \`shelf_ctx\`; 100 \% of \*row, \@ shelf.", self.view())

    def test_groups_open_and_close(self):
        view = self.view()
        self.assertEqual(view.count("@{"), view.count("@}"))
        self.assertRegex(view, r"/\*\* @name Counting\n<p>All return")

    def test_pages(self):
        self.write("README.md", "# Project\n\n[A `page`](docs/a.md#the-end) and\n[a file](LICENSE), `[no](link.md)`.\n")
        self.write("LICENSE", "")
        self.write("docs/a.md", "# A page\n\n**`it's %m`**\n\n## The `end`\n\n```console\n$ `x`\n```\n")
        view = doxygen_filter.page_view(self.root, "README.md")
        self.assertIn('<a href="a.html#a__the-end">A <code>page</code></a> and\n<a href="files/LICENSE">a file</a>', view)
        self.assertNotIn("link.html", view)
        view = doxygen_filter.page_view(self.root, "docs/a.md")
        self.assertIn("# A page {#a}\n\n<b><code>it's \\%m</code></b>\n\n## The end {#a__the-end}\n", view)
        self.assertIn("```console\n$ `x`\n```", view)


class FindsPages(Scratch):
    def test_takes_whatever_is_there_in_the_order_of_the_readme(self):
        self.write("README.md", "# R\n\n[b](docs/b.md) [e](examples/README.md)\n")
        for name in ("docs/a.md", "docs/b.md", "CHANGELOG.md", "examples/README.md", "examples/other.md"):
            self.write(name, "# T\n")
        self.assertEqual(pages.pages(self.root),
                         ["README.md", "docs/b.md", "docs/a.md", "CHANGELOG.md", "examples/README.md"])

    def test_names_headings_as_a_hosting_service_does(self):
        found = markdown.headings("# One `--two`, [three](x.md)!\n\n```\n# no heading\n```\n\n## Same\n\n## Same\n")
        self.assertEqual([each.slug for each in found], ["one---two-three", "same", "same-1"])


class LinkCheck(Scratch):
    def setUp(self):
        super().setUp()
        self.write("docs/other.md", "# Other\n\n## A place\n")

    def complaints(self, text):
        page = self.write("docs/page.md", "# Page\n\n" + text + "\n")
        return [complaint.split(": ", 1)[1] for complaint in links.page_complaints(self.root, page)[0]]

    def test_accepts_what_is_there(self):
        self.assertEqual(self.complaints("[a](other.md), [b](other.md#a-place), [c](#page), [d](../docs/), [the\n"
                                         "next](other.md) and [far](https://example.org/x.md) and `[code](no.md)`"), [])

    def test_finds_what_is_not(self):
        self.assertEqual(self.complaints("see [a](gone.md)"), ["gone.md is not there"])
        self.assertEqual(self.complaints("![a](gone.png)"), ["gone.png is not there"])
        self.assertEqual(self.complaints("[over\ntwo lines](gone.md)"), ["gone.md is not there"])
        self.assertEqual(self.complaints("[a](other.md#gone)"), ["other.md#gone has no such heading"])
        self.assertEqual(self.complaints("[a](#gone)"), ["#gone has no such heading"])
        self.assertEqual(self.complaints("[a](../../etc)"), ["../../etc leads out of the tree"])
        self.assertEqual(self.complaints("[a](/docs/other.md)"), ["/docs/other.md leads out of the tree"])
        self.assertEqual(self.complaints("[a][b]\n\n[b]: other.md"), ["a link by reference: the site has none"] * 2)

    def test_looks_at_the_site_too(self):
        page = self.write("site/a.html", '<h1 id="top">A</h1><a href="b.html#here">b</a><a href="#top"></a>')
        self.write("site/b.html", '<a name="here"></a><img src="gone.png"><a href="a.html#gone"></a>')
        self.write("site/tree.js", 'var tree = ["b.html#here", "c.html"];')
        complaints, count = links.site_complaints(page.parent)
        self.assertEqual(complaints, ["b.html: a.html#gone has no such place", "b.html: gone.png is not there",
                                      "tree.js: c.html is not there"])
        self.assertEqual(count, 6)


class WordCheck(unittest.TestCase):
    PAGE = "# T\n\n<!-- not run here: why -->\n![A view](v.svg)\n\n1. Ten %m in `a b`, a [link](x.md).\n\n```console\n#include\n```\n"
    SITE = "<script>no</script><h1>T</h1><img alt='A view'><ol><li>Ten %m in <code>a b</code>, a <a>link</a>.</li></ol><pre>#include</pre>"

    def test_accepts_all_words(self):
        self.assertEqual(site_words.missing(self.PAGE, self.SITE), {})

    def test_finds_each_that_is_swallowed(self):
        self.assertEqual(site_words.missing(self.PAGE, self.SITE.replace("%m", "m")), {"%m": 1})
        self.assertEqual(site_words.missing(self.PAGE, self.SITE.replace("a b", "b")), {"a": 1})
        self.assertEqual(site_words.missing(self.PAGE, self.SITE.replace("#include", "")), {"#include": 1})


if __name__ == "__main__":
    unittest.main()
