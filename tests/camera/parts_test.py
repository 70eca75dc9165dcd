"""Parts of the simulated camera: rules of --answer, and what a terminal is shown of other people's bytes."""
import pytest

from simulator.daemons import LATE, Rule, parse_rule
from simulator.texts import decoded, harmless, indented


def test_a_rule_of_answer_is_read_and_shown():
    assert parse_rule("6=ok") == Rule(6, "ok") and parse_rule("10=late") == Rule(10, "late", LATE)
    assert str(parse_rule("10=late:86400")) == "10=late:86400"


@pytest.mark.parametrize("text", ["", "6", "6 =busy", "6=busyx", "6=busy:3", "6=late:", "6=late:-1",
                                  "6=late:86401", "99=busy", "3=busy\n"])
def test_another_text_is_no_rule_of_answer(text):
    with pytest.raises(ValueError):
        parse_rule(text)


@pytest.mark.parametrize("data, shown", [
    # Escape sequences begin with ESC or with U+009B, which is two bytes in UTF-8 and one elsewhere.
    (b"a\x1b[31m\x7f\x01\tb\n", "a?[31m??\tb?"),
    (b"a\xc2\x9b31m\xc2\x80\xc2\x9f|\x9b|\xff", "a?31m??|?|?"),
    ("é\u00a0€📷".encode(), "é\u00a0€📷"),
    (b"\xc0\x9b\xed\xa0\x80", "?????")])  # too long a form, a surrogate
def test_no_text_reaches_a_terminal_as_commands(data, shown):
    assert harmless(decoded(data)) == shown


def test_a_document_is_indented_also_when_it_is_not_well_formed():
    assert indented("<?xml?><a><b>1</b><c/><d></a><e") == [
        "<?xml?>", "<a>", "  <b>1</b>", "  <c/>", "  <d></a>", "  <e"]
    assert indented("plain <b>\n") == ["plain <b>"]
