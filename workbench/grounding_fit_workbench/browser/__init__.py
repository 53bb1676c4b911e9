"""The pages for the browser: what they show, and what writes them."""
