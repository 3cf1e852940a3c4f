// Light or dark: as the system says, or as the viewer has chosen, which is kept in this browser.

const KEY = "tabulo-theme";

function apply(theme) {
  if (theme === "system") {
    delete document.documentElement.dataset.theme;
  } else {
    document.documentElement.dataset.theme = theme;
  }
}

// Makes a select the switch. Calls `changed` when the colours are others.
export function startTheme(select, changed) {
  const kept = localStorage.getItem(KEY);
  select.value = kept === "light" || kept === "dark" ? kept : "system";
  apply(select.value);
  select.addEventListener("change", () => {
    localStorage.setItem(KEY, select.value);
    apply(select.value);
    changed();
  });
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", changed);
}
