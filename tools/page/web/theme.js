// Light, dark, or as the system has it. Runs before the page is drawn, so that a theme never flashes; a plain script,
// for modules run later. The root's data-theme is always what is shown: "light" or "dark".
window.vexTheme = {
    choices: ['auto', 'light', 'dark'],
    choice: 'auto',
    system: matchMedia('(prefers-color-scheme: dark)'),

    /// Called with nothing when other colours are shown.
    onChange: () => {},

    show() {
        const system = this.system.matches ? 'dark' : 'light';
        document.documentElement.dataset.theme = this.choice === 'auto' ? system : this.choice;
        this.onChange();
    },

    next() {
        this.choice = this.choices[(this.choices.indexOf(this.choice) + 1) % this.choices.length];
        try {
            localStorage.setItem('vex-theme', this.choice);
        } catch {
            /* it is for this page alone then */
        }
        this.show();
    },

    load() {
        try {
            const kept = localStorage.getItem('vex-theme');
            if (this.choices.includes(kept)) this.choice = kept;
        } catch {
            /* without storage the system decides */
        }
        this.system.addEventListener('change', () => this.show());
        this.show();
    },
};
window.vexTheme.load();
