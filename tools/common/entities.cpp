/* tools/common/entities.cpp - the entities that authors and translators write. */
#include "entities.h"

#include <stdlib.h>

#include "host/ascii.h"

using std::string;
using std::string_view;

// Those of HTML 4, of the Latin alphabets and of signs; each ends with a blank.
static constexpr string_view ENTITIES =
    "AElig Aacute Abreve Acirc Agrave Alpha Amacr Aogon Aring Atilde Auml Beta Cacute Ccaron "
    "Ccedil Ccirc Cdot Chi Dagger Dcaron Delta Dstrok ENG ETH Eacute Ecaron Ecirc Edot Egrave "
    "Emacr Eogon Epsilon Eta Euml Gamma Gbreve Gcedil Gcirc Gdot Hcirc Hstrok IJlig Iacute "
    "Icirc Idot Igrave Imacr Iogon Iota Itilde Iuml Jcirc Kappa Kcedil Lacute Lambda Lcaron "
    "Lcedil Lmidot Lstrok Mu Nacute Ncaron Ncedil NewLine Ntilde Nu OElig Oacute Ocirc Odblac "
    "Ograve Omacr Omega Omicron Oslash Otilde Ouml Phi Pi Prime Psi Racute Rcaron Rcedil Rho "
    "Sacute Scaron Scedil Scirc Sigma THORN Tab Tau Tcaron Tcedil Theta Tstrok Uacute Ubreve "
    "Ucirc Udblac Ugrave Umacr Uogon Upsilon Uring Utilde Uuml Wcirc Xi Yacute Ycirc Yuml "
    "Zacute Zcaron Zdot Zeta aacute abreve acirc acute aelig agrave alefsym alpha amacr amp and "
    "ang aogon apos aring ast asymp atilde auml bdquo beta brvbar bsol bull cacute cap ccaron "
    "ccedil ccirc cdot cedil cent check chi circ clubs colon comma commat cong copy copysr "
    "crarr cross cup curren dArr dagger darr dash dcaron deg delta diams divide dollar dstrok "
    "eacute ecaron ecirc edot egrave emacr empty emsp eng ensp eogon epsilon equals equiv eta "
    "eth euml euro excl exist female fnof forall frac12 frac14 frac34 frasl gamma gbreve gcirc "
    "gdot ge grave gt hArr harr hcirc hearts hellip horbar hstrok hyphen iacute icirc iexcl "
    "igrave ijlig imacr image infin inodot int iogon iota iquest isin itilde iuml jcirc kappa "
    "kcedil kgreen lArr lacute lambda lang laquo larr lbrace lbrack lcaron lcedil lceil lcub "
    "ldquo le lfloor lmidot lowast lowbar loz lrm lsaquo lsqb lsquo lstrok lt macr male mdash "
    "micro middot minus mu nabla nacute napos nbsp ncaron ncedil ndash ne ni not notin nsub "
    "ntilde nu num oacute ocirc odblac oelig ograve oline omacr omega omicron oplus or ordf "
    "ordm oslash otilde otimes ouml para part percnt period permil perp phi phone pi piv plus "
    "plusmn pound prime prod prop psi quest quot rArr racute radic rang raquo rarr rbrace "
    "rbrack rcaron rcedil rceil rcub rdquo real reg rfloor rho rlm rsaquo rsqb rsquo sacute "
    "sbquo scaron scedil scirc sdot sect semi shy sigma sigmaf sim sol spades star starf sub "
    "sube sum sup sup1 sup2 sup3 supe szlig tau tcaron tcedil there4 theta thetasym thinsp "
    "thorn tilde times trade tstrok uArr uacute uarr ubreve ucirc udblac ugrave umacr uml uogon "
    "upsih upsilon uring utilde uuml verbar vert wcirc weierp xi yacute ycirc yen yuml zacute "
    "zcaron zdot zeta zwj zwnj ";

static bool isEntity(string_view name)
{
    const string wanted = string(name) + " ";
    for (size_t pos = ENTITIES.find(wanted); pos != string_view::npos;
         pos = ENTITIES.find(wanted, pos + 1))
        if (pos == 0 || ENTITIES[pos - 1] == ' ')
            return !name.empty();
    return false;
}

// Whether the digits of a numeric reference, "x" in front of hexadecimal ones, name a character.
static bool isCharacterNumber(string_view digits)
{
    const bool isHex = !digits.empty() && (digits[0] | 0x20) == 'x';
    const string number(digits.substr(isHex ? 1 : 0));
    char *end;
    const unsigned long value = strtoul(number.c_str(), &end, isHex ? 16 : 10);
    return !number.empty() && !*end && value > 0 && value <= 0x10ffff &&
           (value < 0xd800 || value > 0xdfff);
}

std::string_view entityNames()
{
    return ENTITIES;
}

size_t wrongEntity(string_view rest, string *cure)
{
    const auto at = [&](size_t pos) { return pos < rest.size() ? rest[pos] : '\0'; };
    const bool isNumber = at(1) == '#';
    const size_t start = isNumber ? 2 : skip(rest, 1, isBlank);
    const size_t end = skip(rest, start, isLetterOrDigit);
    const string_view name = rest.substr(start, end - start);
    const bool isKnown = isNumber ? isCharacterNumber(name) : isEntity(name);
    const size_t mark = skip(rest, end, isBlank); // "&nbsp ;"
    const bool isMarked = at(mark) == ';';
    const bool isSpaced = mark != end || (!isNumber && start != 1);
    *cure = isKnown ? "write &" + string(isNumber ? "#" : "") + string(name) + ";"
                    : "write &amp; for a & that is to be seen";
    if (isMarked && !isSpaced)
        return isKnown || end == start ? 0 : end + 1;
    if (isMarked && isKnown)
        return mark + 1;
    const bool isAddress = at(end) == '='; // "?a=1&copy=2"
    return isKnown && !isAddress && start == (isNumber ? 2 : 1) ? end : 0;
}
