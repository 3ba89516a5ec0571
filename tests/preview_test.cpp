/* tests/preview_test.cpp - what orv-preview must know of a page to put its bar behind it. */
#include <gtest/gtest.h>

#include "tools/preview/markup.h"

using std::string;

TEST(Markup, Rows)
{
    const string meta =
        "<META Http-Equiv='content-security-policy' content=\"default-src 'none'\">";
    const struct {
        string page, closing;
        size_t policy = string::npos;
    } rows[] = {
        {"", ""},
        {"<p>a < b <3 </ > <?xml x?></p>", ""},
        {"<!--> <!-- <p title=\" --><p>", ""},
        {"<p><!-- <p>", "-->"},
        {"<a href=x title='>\">'>", ""},
        {"<a it's>", ""}, // a quote inside a name is a letter
        {"<a href = \"x>", "\">"},
        {"<a\fhref='x>", "'>"},
        {"<a href=x", ">"},
        {"<!DOCTYPE html", ">"},
        {"<script>if (a<b) '</p>'</Script >", ""},
        {"<script>'</scripts>", "</script>"},
        {"<title>a <!-- b</title>", ""},
        {"<TextArea><p>", "</textarea>"},
        {"<head>" + meta + "<style>", "</style>", 6},
        {meta + meta, "", 0},
        {"<!-- " + meta + " --><title>" + meta + "</title>", ""},
        {"<meta name=content-security-policy>", ""},
    };
    for (const auto &[page, closing, policy] : rows) {
        const Markup markup = readMarkup(page);
        EXPECT_EQ(markup.closing, closing) << page;
        EXPECT_EQ(markup.open.empty(), closing.empty()) << page;
        EXPECT_EQ(markup.policy, policy) << page;
    }
}
