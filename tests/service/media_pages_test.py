"""The requests of the page on media, as pages_test runs those of the other pages."""
import pytest

from pages_test import EXAMPLES, MEDIA, compare_with_its_page, updates  # noqa: F401


@pytest.mark.parametrize("example", [example for example in EXAMPLES if example.page == MEDIA], ids=str)
def test_a_request_has_the_result_that_its_page_shows(camera, updates, example):  # noqa: F811
    compare_with_its_page(camera, updates, example)
