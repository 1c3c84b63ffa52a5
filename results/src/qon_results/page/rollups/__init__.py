"""Figures by item, cell and day beside the results, made and kept up to date by the page; they can be deleted at any time."""
