// Runs before the first paint, so that a dark room is not lit up by a white page. What was chosen by hand is kept for this
// browser; nothing chosen follows the system.
(() => {
  const dark = matchMedia('(prefers-color-scheme: dark)');
  const apply = () => {
    let chosen = null;
    try {
      chosen = localStorage.getItem('theme');
    } catch {
      // A browser that keeps nothing follows the system.
    }
    document.documentElement.dataset.theme = chosen ?? (dark.matches ? 'dark' : 'light');
  };
  dark.addEventListener('change', apply);
  addEventListener('storage', apply);
  apply();
})();
