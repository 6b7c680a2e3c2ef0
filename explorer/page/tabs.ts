// Tabs, of which one panel is shown: the arrow keys go from tab to tab.

export class Tabs {
  private readonly tabs: HTMLElement[];

  constructor(list: HTMLElement) {
    this.tabs = [...list.querySelectorAll<HTMLElement>('[role=tab]')];
    for (const [index, tab] of this.tabs.entries()) {
      tab.addEventListener('click', () => this.show(tab.id));
      tab.addEventListener('keydown', (event) => {
        const last = this.tabs.length - 1;
        const to = { ArrowRight: index === last ? 0 : index + 1, ArrowLeft: index === 0 ? last : index - 1, Home: 0,
                     End: last }[event.key];
        if (to === undefined) return;
        event.preventDefault();
        this.show(this.tabs[to]!.id);
        this.tabs[to]!.focus();
      });
    }
  }

  show(id: string): void {
    for (const tab of this.tabs) {
      const chosen = tab.id === id;
      tab.setAttribute('aria-selected', String(chosen));
      tab.tabIndex = chosen ? 0 : -1;
      document.getElementById(tab.getAttribute('aria-controls')!)!.hidden = !chosen;
    }
  }
}
