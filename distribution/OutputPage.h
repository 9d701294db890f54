// A page as it goes out: a named block of bytes of a site, with its identity, and the
// ready-made packets that carry its current version over every port.
#pragma once

#include <string>
#include <vector>

#include "frame/Types.h"

class COutputPage;

// Watches pages; told when a page has a new version ready.
class COutputPageObserver {
 public:
  COutputPageObserver() = default;
  COutputPageObserver(const COutputPageObserver&) = delete;
  COutputPageObserver& operator=(const COutputPageObserver&) = delete;
  // Detaches from every page it watches.
  virtual ~COutputPageObserver();
  virtual void OnPageUpdated(COutputPage* page) { (void)page; }
  // Adds the page to the watched ones unless present, then always attaches to the page.
  virtual void Attach(COutputPage* page);
  virtual void Detach(COutputPage* page);

  // Forgets the page (the page is going away).
  void RemoveSubject(COutputPage* page);
  const std::vector<COutputPage*>& GetSubjects() const { return Subjects; }

 private:
  std::vector<COutputPage*> Subjects;
};

// Packets of one page version: owned blocks of PacketSize bytes each.
using PacketBlocks = std::vector<BYTE*>;

class COutputPage {
 public:
  COutputPage(DWORD siteNumber, DWORD pageNumber, DWORD level, DWORD repeat, const std::string& path,
              const std::string& filename);
  COutputPage(const COutputPage&) = delete;
  COutputPage& operator=(const COutputPage&) = delete;
  // Detaches from every observer, then frees the packets.
  virtual ~COutputPage();
  // Called once a second: true when the page is due to go out again.
  virtual bool ShouldRepeat();
  virtual void Attach(COutputPageObserver* observer);
  virtual void Detach(COutputPageObserver* observer);

  void ClearPackets();
  static std::string ReplaceAll(std::string text, const std::string& from, const std::string& to);
  void SetFilename(const std::string& filename);
  // Reads root + Path + Filename into Data. False when the file can't be opened.
  BOOL FileImport(const std::string& root);
  // Percentage saved by compression, 0 to 100.
  double GetCompressionRatio() const;
  std::string GetDataAsString() const;
  // The page's row in a site's table of pages: `style` colours the row unless the page
  // has an error; `siteName` leads the links to the page.
  std::string GetPageAsHTMLRow(const std::string& siteName, const std::string& style) const;
  // The folder of the page as a browser path: "/" between folders, ending in "/" unless empty.
  std::string GetWebDirectory() const;
  // A new version: page record, compression, size header, escapes, packets.
  void BuildPackets();
  void NotifyPageUpdated();

  // The page record that BuildPackets compresses.
  std::vector<BYTE> MakePageRecord() const;

  DWORD GetPageKey() const { return PageKey; }
  const std::string& GetPath() const { return Path; }
  const std::string& GetFilename() const { return Filename; }
  const std::string& GetSourceFilename() const { return SourceFilename; }
  const std::string& GetExtension() const { return Extension; }
  const std::string& GetExportName() const { return ExportName; }
  const std::string& GetSourceRoot() const { return SourceRoot; }
  BYTE GetSequenceLow() const { return SequenceLow; }
  BYTE GetSequenceHigh() const { return SequenceHigh; }
  // Puts the version counter at a given pair (the next build counts on from there).
  void SetSequence(BYTE high, BYTE low) { SequenceHigh = high, SequenceLow = low; }
  DWORD GetIsTemplate() const { return IsTemplate; }
  DWORD GetRepeat() const { return Repeat; }
  DWORD GetRepeatCountdown() const { return RepeatCountdown; }
  DWORD GetPlainSize() const { return PlainSize; }
  DWORD GetCompressedSize() const { return CompressedSize; }
  const std::vector<BYTE>& GetData() const { return Data; }
  void SetData(std::vector<BYTE> data) { Data = std::move(data); }
  const PacketBlocks& GetPackets() const { return Packets; }
  const std::vector<COutputPageObserver*>& GetObservers() const { return Observers; }

 protected:
  DWORD PageKey = 0;
  std::string Path;
  std::string Filename;
  std::string SourceFilename;
  std::string Extension;
  std::string ExportName;
  BYTE SequenceLow = 0;
  BYTE SequenceHigh = 0;
  BOOL InitialVersion = 1;
  DWORD IsTemplate = 0;
  std::string SourceRoot;
  DWORD Repeat = 0;
  DWORD PlainSize = 0;
  DWORD CompressedSize = 0;
  DWORD RepeatCountdown = 0;
  DWORD DerivedValue = 10;  // used by the template page
  std::string DerivedText1, DerivedText2, DerivedText3, DerivedText4;
  std::vector<BYTE> Data;
  PacketBlocks Packets;
  std::vector<COutputPageObserver*> Observers;

 private:
  void CutIntoPackets(const std::vector<BYTE>& escapedStream);
};
