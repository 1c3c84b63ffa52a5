"""The layout of one cell: band, entry, pages, details."""
