"""The page in the browser: routes, templates and style on top of a store; `app.application` is the whole of it."""
