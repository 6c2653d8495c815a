// Runs before the page is drawn, so that a chosen theme never flashes; a plain script, for modules run later.
try {
    const theme = localStorage.getItem('vex-theme');
    if (theme === 'light' || theme === 'dark') document.documentElement.dataset.theme = theme;
} catch {
    /* without storage the system decides */
}
